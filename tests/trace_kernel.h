// The kernel as the tests see it.
//
// The test program defines every kernel function itself, so the filter's calls come here first. Each
// call is traced and may be made to fail, to come back short or to throw; memory and in-memory files
// are this module's own, everything else is forwarded to the kernel library. All state belongs to the
// calling thread.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/kernel.h"

using Bytes = std::vector<uint8_t>;
using Trace = std::vector<std::string>;

// A file in memory, read and written through its handle.
struct MemoryFile {
    explicit MemoryFile(Bytes contents);
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    tagHANDLE* Handle() { return reinterpret_cast<tagHANDLE*>(this); }

    Bytes bytes;
    size_t position = 0;
    std::vector<int> script; // what the first reads return at most; below 0: that read fails with it
    size_t reads = 0;
};

enum class Fault { Fail, Short, Throw, EndThread };
struct KernelFault {}; // what a faulty call throws

struct TestKernel {
    Trace trace;          // one entry per call, "Seek 512 0"; without the memory helpers
    unsigned calls = 0;   // of any kernel function or callback
    unsigned faultAt = 0; // the call that goes wrong, counted from 1
    Fault fault = Fault::Fail;
    std::string faulted;                            // its trace entry
    std::function<void(const std::string&)> inside; // runs in every call: records may change under the filter

    std::map<void*, size_t> blocks; // allocated and not yet freed
    size_t held = 0, mostHeld = 0;  // bytes of them
    unsigned badFrees = 0;
    std::map<std::string, Bytes> files; // what K_RedirectedOpen finds before it looks on the disk
    std::map<tagHANDLE*, std::unique_ptr<MemoryFile>> open; // opened and not yet closed
    unsigned badCloses = 0;
    Bytes closed; // the contents of the file in memory that was closed last
};

TestKernel& KernelInUse();
void ResetTestKernel();
// Runs an operation on a thread of its own, with this thread's kernel, and waits for the thread to end.
void RunOnThread(const std::function<void()>& operation);
// True when everything taken from the kernel went back exactly once.
bool NothingHeld();
// Counts and traces a call. True when it is to fail or come back short; does not return when it is to throw
// or to end the thread.
bool EnterCall(const std::string& entry);
// The traced calls whose entries begin so.
Trace CallsNamed(const std::string& name);

// Begins with a fresh kernel and ends with everything given back.
class KernelTest : public testing::Test {
protected:
    void SetUp() override { ResetTestKernel(); }
    void TearDown() override { EXPECT_TRUE(NothingHeld()); }
};
