// Code that is compiled twice: for every x86-64 processor, and for those with AVX2 (and the instructions that
// come with it: BMI1, BMI2, LZCNT and POPCNT). dispatch.h chooses one of the two when the library is loaded;
// the tests compare them.
#pragma once

#include <cstdint>

namespace faxx {

enum class InstructionSet : uint8_t { Baseline, Avx2 };

// In front of a function that uses AVX2. What it calls is inlined into it, or gains nothing from AVX2.
#define FAXX_AVX2 [[gnu::target("popcnt,lzcnt,bmi,bmi2,avx2")]]

} // namespace faxx
