// The statuses in words.
#include "host/standin/standin.h"

namespace standin {

const char* StatusText(int status) {
    switch (status) {
    case SUCCESS:
        return "success";
    case FAILURE:
        return "nothing was recognised";
    case ERROR_NO_MEMORY:
        return "not enough memory";
    case ERROR_FILE_WRITE:
        return "the file cannot be written";
    case ERROR_FILE_READ:
        return "the file is too short or cannot be read";
    case ERROR_FILE_FORMAT:
        return "not a file of a known format";
    case ERROR_FILE_OPEN:
        return "the file cannot be opened";
    case ERROR_WIDTH_LIMIT:
    case ERROR_INV_PARAMETER:
        return "a width or size is out of range";
    case ERROR_NULL_PTR:
        return "a required argument is missing";
    case ERROR_FILE_CREATE:
        return "the file cannot be created";
    case ERROR_FORMAT_NOT_WRITABLE:
        return "the format cannot be written";
    case ERROR_BITS_PER_PIXEL:
        return "not a picture of 1 bit per pixel";
    case ERROR_FAX_DATA_CORRUPT:
        return "the data is invalid or ends early";
    case ERROR_EXCEPTION:
        return "an exception stopped the filter";
    case ERROR_BUFFER_TOO_SMALL:
        return "the buffer is too small";
    case ERROR_NO_CALLBACK:
        return "there is no row callback";
    case ERROR_FAX_WIDTH_CHANGED:
        return "a line is wider than the picture";
    case kStatusStopped:
        return "stopped";
    default:
        return "unknown error";
    }
}

} // namespace standin
