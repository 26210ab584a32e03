// Code that is compiled twice: for any x86-64, and for processors that shift by any register (BMI2), count
// and clear bits (POPCNT, LZCNT, BMI1) and have vectors of 32 bytes (AVX2). Which of the two runs is chosen
// when the library is loaded. Both are always there, and the tests compare them.
#pragma once

#include <cpuid.h>

#include <cstdint>

namespace faxx {

enum class Form : uint8_t { Anywhere, Faster };

// In front of the functions of the faster form. What they call is inlined into them, or gains nothing.
#define FAXX_FASTER_FORM [[gnu::target("popcnt,lzcnt,bmi,bmi2,avx2")]]

// Out of line: it is asked once for each choice.
[[gnu::noinline]] inline bool HasFasterInstructions() {
    __builtin_cpu_init();
    // LZCNT is not among the names that every compiler knows. Where it is missing it runs as another
    // instruction.
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

template <typename Function>
Function* ChooseForm(Function* anywhere, Function* faster) {
    return HasFasterInstructions() ? faster : anywhere;
}

} // namespace faxx
