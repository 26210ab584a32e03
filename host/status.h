// The status space shared by the kernel, its callbacks and its filters: one signed 32-bit value,
// 1 for success, everything else stops the operation and travels up unchanged.
#pragma once

enum KernelStatus : int {
    SUCCESS = 1,
    FAILURE = 0, // not recognised, or nothing found
    ERROR_NO_MEMORY = -1,
    ERROR_FILE_WRITE = -5,
    ERROR_FILE_READ = -7,   // fewer bytes than asked for
    ERROR_FILE_FORMAT = -9, // not a file of this filter
    ERROR_FILE_OPEN = -10,
    ERROR_WIDTH_LIMIT = -11, // wider than a decoder's change lists
    ERROR_INV_PARAMETER = -12,
    ERROR_NULL_PTR = -13, // a required pointer is missing; also a bad bits-per-pixel
    ERROR_FILE_CREATE = -14,
    ERROR_FORMAT_NOT_WRITABLE = -16,
    ERROR_BITS_PER_PIXEL = -27,
    ERROR_FAX_DATA_CORRUPT = -62, // left in a load dispatch's Status, never returned
    ERROR_EXCEPTION = -149,       // an exception was caught at the filter's boundary
    ERROR_BUFFER_TOO_SMALL = -290,
    ERROR_NO_CALLBACK = -814,
    ERROR_FAX_WIDTH_CHANGED = -1753, // left in a load dispatch's Status, never returned
};
