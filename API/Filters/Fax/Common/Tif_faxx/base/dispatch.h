// The functions of the codec that exist for two instruction sets, and the choice between them.
#pragma once

#include "API/Filters/Fax/Common/Tif_faxx.h"

namespace faxx {

namespace g3 {
struct Line;
enum class Edge : uint8_t;
} // namespace g3
namespace g4 {
struct Line;
enum class After : uint8_t;
} // namespace g4
enum class LineEnd : uint8_t;

struct CodecFunctions {
    bool (*readRuns)(g3::Line& line, g3::Edge edge); // decode/fast/g3_fast.h
    g4::After (*readModes)(g4::Line& line);          // decode/fast/g4_fast.h
    uint32_t (*writeRuns)(const uint32_t* list, uint32_t entries, uint32_t width,
                          uint16_t* words);                                 // rows/run_rows.h
    void (*encodeModes)(CCITTG34* record, const uint8_t* row, LineEnd end); // encode/line_coding.h
    void (*encodeRuns)(CCITTG34* record, const uint8_t* row);               // encode/line_coding.h
};

extern const CodecFunctions kBaselineFunctions;
extern const CodecFunctions kAvx2Functions;

// Those of this processor, chosen when the library is loaded.
extern const CodecFunctions kFunctions;

bool HasAvx2();

} // namespace faxx
