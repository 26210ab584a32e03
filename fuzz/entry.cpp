// Where the fuzzer and the replay program enter a target.
#include "fuzz/harness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::RunInput(data, size);
    fuzz::Require(standin::HeldAllocations().Blocks.empty(), "all memory was given back");
    return 0;
}
