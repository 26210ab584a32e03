#include "API/Filters/Fax/Common/Tif_faxx/base/dispatch.h"

#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g3_fast.h"
#include "API/Filters/Fax/Common/Tif_faxx/decode/fast/g4_fast.h"
#include "API/Filters/Fax/Common/Tif_faxx/encode/line_coding.h"
#include "API/Filters/Fax/Common/Tif_faxx/rows/run_rows.h"

#include <cpuid.h>

namespace faxx {

constexpr CodecFunctions kBaselineFunctions{g3::ReadRunsBaseline, g4::ReadModesBaseline, WriteRunsBaseline,
                                            EncodeModesBaseline, EncodeRunsBaseline};
constexpr CodecFunctions kAvx2Functions{g3::ReadRunsAvx2, g4::ReadModesAvx2, WriteRunsAvx2, EncodeModesAvx2,
                                        EncodeRunsAvx2};

#ifdef KFFAX_BASELINE_ONLY // a build for tests, on processors that would choose otherwise
const CodecFunctions kFunctions = kBaselineFunctions;
#else
const CodecFunctions kFunctions = HasAvx2() ? kAvx2Functions : kBaselineFunctions;
#endif

bool HasAvx2() {
    __builtin_cpu_init();
    // Not every compiler knows LZCNT by name. On a processor without it, it runs as another instruction.
    constexpr unsigned kLeaf = 0x80000001;
    constexpr unsigned kLzcnt = 1u << 5; // in ECX
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    return __get_cpuid(kLeaf, &eax, &ebx, &ecx, &edx) != 0 && (ecx & kLzcnt) != 0 &&
           __builtin_cpu_supports("popcnt") && __builtin_cpu_supports("bmi") &&
           __builtin_cpu_supports("bmi2") && __builtin_cpu_supports("avx2");
}

} // namespace faxx
