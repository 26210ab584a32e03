// What the filter calls: the functions that the imaging kernel, libktkrn.so.19, exports.
//
// Run-length rows: per row a 32-bit count in the first two 16-bit words (host byte order), then that
// many 16-bit run lengths, white first; rows follow one another without gaps. Packed rows: 1 bit per
// pixel, most significant bit first, (width + 7) / 8 bytes, a set bit is palette entry 1.
//
// Any of these may throw.
#pragma once

#include "host/records.h"
#include "host/status.h"

extern "C" {

// Redirected file I/O. flags and permission are those of POSIX open().
// Returns INVALID_KERNEL_HANDLE when the file cannot be opened.
tagHANDLE* K_RedirectedOpen(const char* fileName, int flags, int permission);
// Bytes read from the current position; other than count means end of data or an error.
int K_RedirectedRead(tagHANDLE* handle, void* buffer, unsigned count);
// Bytes written; other than count is a failure. A count of 0 is harmless.
int K_RedirectedWrite(tagHANDLE* handle, const void* buffer, unsigned count);
// The new position. origin: 0 from the start, 1 from the current position.
long long K_RedirectedSeek(tagHANDLE* handle, long long offset, int origin);
void K_RedirectedClose(tagHANDLE* handle);

// Tracked memory: line and path name the caller's source.
void* K_LocalAlloc(size_t count, size_t elementSize, int line, const char* path);
void K_LocalFree(void* block, int line, const char* path);
void K_MemorySet(void* destination, int value, size_t count);
void K_MemoryCopy(void* destination, const void* source, size_t count); // a move

// The operating system's last error as a status, defaultStatus when there is no better one.
int K_OsGetLastError(int defaultStatus);

// Bitmaps.
void K_InitBitmap(_BITMAPHANDLE* bitmap, unsigned recordSize, int width, int height, int bitsPerPixel);
int K_AllocateBitmap(_BITMAPHANDLE* bitmap, int memoryKind);
int K_IntAccessBitmap(_BITMAPHANDLE* bitmap, int zero);
int K_IntReleaseBitmap(_BITMAPHANDLE* bitmap, int one, int status);
void K_FreeBitmap(_BITMAPHANDLE* bitmap);
int K_SetBitmapNewPalette(_BITMAPHANDLE* bitmap, const _PALETTEENTRY* twoEntries, unsigned paletteParam,
                          int normal);

// Run-length rows. work is a scratch area of at least one packed row.
int K_GetBitmapRowCompressed(_BITMAPHANDLE* bitmap, unsigned char* work, unsigned short* runs, unsigned row,
                             unsigned rowCount);
int K_PutBitmapRowColCompressed(_BITMAPHANDLE* bitmap, unsigned char* work, const unsigned short* runs,
                                unsigned row, unsigned column, unsigned pixels);
int K_ExpandRows(const unsigned short* runs, unsigned char* destination, unsigned width, unsigned rowCount);
int K_CompressRow(unsigned short* runs, const unsigned char* row, int zero, unsigned width);
void K_MirrorCompressedBuffer(const unsigned short* source, unsigned short* destination, unsigned rowCount);

// Redirection of a handle to memory. mode is REDIRECT_READ or REDIRECT_WRITE.
int K_StartRedirectToBuffer(void** redirect, tagHANDLE** handle, unsigned mode, unsigned char* buffer,
                            unsigned long long size);
int K_StopRedirectToBuffer(void* redirect, unsigned char** buffer, unsigned long long* size);

} // extern "C"

// NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel's value
inline tagHANDLE* const INVALID_KERNEL_HANDLE = reinterpret_cast<tagHANDLE*>(~uintptr_t{0});
