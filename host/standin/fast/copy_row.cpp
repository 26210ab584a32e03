#include "host/standin/fast/copy_row.h"

#include "host/standin/fast/processor.h"

#include <immintrin.h>

#include <cstring>

namespace standin {

namespace {

constexpr size_t kStepBytes = 4 * sizeof(__m256i);
static_assert(kStepBytes == kRowSlack + 1);

void CopyBaseline(unsigned char* target, const unsigned char* source, size_t bytes) {
    std::memcpy(target, source, bytes);
}

__attribute__((target("avx2"))) void CopyAvx2(unsigned char* target, const unsigned char* source,
                                              size_t bytes) {
    const auto* from = reinterpret_cast<const __m256i*>(source);
    auto* to = reinterpret_cast<__m256i*>(target);
    for (size_t copied = 0; copied < bytes; copied += kStepBytes) {
        const __m256i first = _mm256_loadu_si256(from++);
        const __m256i second = _mm256_loadu_si256(from++);
        const __m256i third = _mm256_loadu_si256(from++);
        const __m256i fourth = _mm256_loadu_si256(from++);
        _mm256_storeu_si256(to++, first);
        _mm256_storeu_si256(to++, second);
        _mm256_storeu_si256(to++, third);
        _mm256_storeu_si256(to++, fourth);
    }
}

const auto copyFunction = HasAvx2AndBmi2() ? CopyAvx2 : CopyBaseline;

} // namespace

void CopyRow(unsigned char* target, const unsigned char* source, size_t bytes) {
    copyFunction(target, source, bytes);
}

} // namespace standin
