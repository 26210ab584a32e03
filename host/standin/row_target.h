// The row callback that builds a bitmap.
#pragma once

#include "host/records.h"

#include <functional>

namespace standin {

struct RowTarget {
    _BITMAPHANDLE* Bitmap = nullptr; // null: the rows are discarded
    const std::function<bool(int done, int total)>* Progress = nullptr;
    int Total = 0;
    int Rows = 0;       // delivered so far
    int RowsBefore = 0; // of the image, delivered by earlier calls
};

extern "C" RowCallbackFn ReceiveRows; // userData: the RowTarget

} // namespace standin
