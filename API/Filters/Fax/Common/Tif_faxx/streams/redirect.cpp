#include "API/Filters/Fax/Common/Tif_faxx.h"

#include "host/kernel.h"

int StartRedirectToBuffer(void** redirect, tagHANDLE** handle, unsigned mode, unsigned char* buffer,
                          unsigned long long size) {
    return K_StartRedirectToBuffer(redirect, handle, mode, buffer, size);
}

int StartRedirectToBuffer(void** redirect, tagHANDLE** handle, unsigned mode) {
    return K_StartRedirectToBuffer(redirect, handle, mode, nullptr, 0);
}

int StopRedirectToBuffer(void* redirect, unsigned char** buffer, unsigned long long* size) {
    return K_StopRedirectToBuffer(redirect, buffer, size);
}
