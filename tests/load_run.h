// One load through K_LoadRawFax or fltLoad, with a row callback that keeps the rows.
#pragma once

#include "tests/codec_run.h"

struct LoadRun {
    LoadRun(const Bytes& stream, int format, int width, int height);
    LoadRun(const LoadRun&) = delete;
    LoadRun& operator=(const LoadRun&) = delete;

    int Run(); // K_LoadRawFax on the stream
    _LOADINFO& Info() { return dispatch->LoadInfo; }

    MemoryFile file;
    std::unique_ptr<_LOADDISPATCH> dispatch = std::make_unique<_LOADDISPATCH>();
    std::unique_ptr<_FILEINFOA> fileInfo = std::make_unique<_FILEINFOA>();
    _BITMAPHANDLE bitmap = {};
    RowCallbackFn* callback;
    Rows rows;
    int deliveries = 0;
    int stopAt = 0; // this delivery
    int stopWith = 0;
};

inline constexpr int kCallbackFailed = -4711; // the callback's result at an injected fault
