// A save dispatch over a picture, with callbacks that are traced and may go wrong like kernel calls.
#pragma once

#include <memory>

#include "API/Filters/Fax/Fax.h"
#include "tests/encode_run.h"

struct SaveRun {
    SaveRun(const Picture& picture, unsigned width, int format);
    SaveRun(const SaveRun&) = delete;
    SaveRun& operator=(const SaveRun&) = delete;

    int Run(); // K_SaveRawFax into the file
    int RunTiled(_FAXTILEINFO* tiles, unsigned char* uncompressed = nullptr, unsigned gap = 0);

    Picture picture; // as the coder shall see it, top row first
    std::unique_ptr<_SAVEDISPATCH> dispatch = std::make_unique<_SAVEDISPATCH>();
    std::unique_ptr<_SAVEOPTIONS> options = std::make_unique<_SAVEOPTIONS>();
    std::unique_ptr<_SAVEFILESTRUCT> saveFile = std::make_unique<_SAVEFILESTRUCT>();
    struct Bitmap : _BITMAPHANDLE {
        SaveRun* run;
    } bitmap = {{}, this};
    _BITMAPHANDLE saveBitmap = {}; // a converted copy
    Bytes rowBuffer;
    MemoryFile file;
    SaveRowCallbackFn* rowCallback = nullptr;
    unsigned flags = 0;
    unsigned size = 0xABCD; // as reported
    bool tiled = false;
    bool invertRows = false; // the kernel's rows are the picture's inverted
    int startStatus = 1;
    int stopAtRow = -1; // this fetch fails
    int starts = 0, ends = 0, fetches = 0, rowCalls = 0;
};

inline constexpr int kCallbackStops = -4712; // a result of the callbacks that no other call has

// The row callback: traced as "Row".
extern "C" int TraceRow(_BITMAPHANDLE* saveBitmap, unsigned char* row, void* userData);
