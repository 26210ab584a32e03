// What the processor can do.
#pragma once

namespace standin {

// Whether it has the instructions that the AVX2 functions of this folder use.
inline bool HasAvx2AndBmi2() {
    __builtin_cpu_init(); // it is asked while the library is loaded
    static const bool has =
        __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
    return has;
}

} // namespace standin
