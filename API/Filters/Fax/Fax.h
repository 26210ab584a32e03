// The filter's entry points, as the kernel calls them.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

// Describes a file: the header-prefixed G4 format, or a raw G3 stream where probing is permitted.
// Returns SUCCESS, FAILURE (nothing recognised) or an error; ERROR_NULL_PTR for a null argument.
FAXX_API int fltInfo(_INFODISPATCH* dispatch);
FAXX_API int fltInfoFAX(_INFODISPATCH* dispatch);

// Loads the file that fltInfo described. SUCCESS also for damaged data, which dispatch->Status reports.
FAXX_API int fltLoad(_LOADDISPATCH* dispatch);
FAXX_API int fltLoadFAX(_LOADDISPATCH* dispatch);

// Saves a bitmap as a raw stream of dispatch->Format, over the file's start if it exists.
// ERROR_BITS_PER_PIXEL unless 1, ERROR_FORMAT_NOT_WRITABLE for the header-prefixed format, ERROR_FILE_CREATE,
// or what K_SaveRawFax returns. A file left incomplete by a failure stays as written.
FAXX_API int fltSave(_SAVEDISPATCH* dispatch);
FAXX_API int fltSaveFAX(_SAVEDISPATCH* dispatch);

// Decodes a compressed block into height packed rows of (width + 7) / 8 bytes. width at most
// MAX_BUFFER_WIDTH; flags: LOADINFO_REVERSED_BITS, LOADINFO_MIRROR. Damage is not reported: rows that the
// block does not yield stay as they are, and the result is SUCCESS.
FAXX_API int fltLoadBuffer(unsigned char* input, unsigned long long inputSize, unsigned char* output,
                           int format, int width, int height, unsigned long long reserved1,
                           unsigned long long reserved2, unsigned flags);
FAXX_API int fltLoadBufferFAX(unsigned char* input, unsigned long long inputSize, unsigned char* output,
                              int format, int width, int height, unsigned long long reserved1,
                              unsigned long long reserved2, unsigned flags);

// Codes |info->Height| packed rows (1 = black, no padding between rows) into destination. *size is its
// capacity on entry, the stream's length on return. flags: the FAX_ output flags. ERROR_BUFFER_TOO_SMALL
// where the stream did not fit.
FAXX_API int fltSaveBuffer(unsigned char* source, _BITMAPINFOHEADER* info, unsigned char* destination,
                           unsigned long long* size, unsigned long long unused1, unsigned flags, int format,
                           unsigned long long unused2, unsigned long long mustBeZero);
FAXX_API int fltSaveBufferFAX(unsigned char* source, _BITMAPINFOHEADER* info, unsigned char* destination,
                              unsigned long long* size, unsigned long long unused1, unsigned flags,
                              int format, unsigned long long unused2, unsigned long long mustBeZero);
