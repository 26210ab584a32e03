// The bracket around every save: the kernel's start callback supplies what rows are read from, its end
// callback takes that back, and the two pair up on every way out.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx/streams/cleanup.h"

namespace faxx {

struct SaveSession {
    _SAVEDISPATCH* dispatch = nullptr;
    _BITMAPHANDLE* bitmap = nullptr;
    unsigned callbackParam = 0;
    void* userData1 = nullptr;
    void* userData2 = nullptr;
    bool kernelRowBuffer = false; // ask the kernel for a row buffer; the tiled saver has its own
    _BITMAPHANDLE* saveBitmap = nullptr;
    unsigned char* rowBuffer = nullptr;
    _SAVEFILESTRUCT* saveFile = nullptr;

    // Above 0: the save may go on. End is due in either case.
    int Start() {
        return dispatch->StartCallback(bitmap, &saveBitmap, 1, &callbackParam, RowBufferAddress(), 1,
                                       userData1, userData2, &saveFile);
    }
    void End() { dispatch->EndCallback(bitmap, &saveBitmap, &callbackParam, RowBufferAddress(), &saveFile); }

private:
    unsigned char** RowBufferAddress() { return kernelRowBuffer ? &rowBuffer : nullptr; }
};

inline void InvertBits(uint8_t* bytes, size_t count) {
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(~bytes[i]);
}

// Gives an encoding record's buffers back without writing anything: the way out of an exception.
inline void DropEncoder(CCITTG34* record) {
    RunGuarded([&] { Free(record->ReferenceLine); });
    RunGuarded([&] { Free(record->CodingLine); });
    RunGuarded([&] { Free(record->Buffer); });
}

} // namespace faxx
