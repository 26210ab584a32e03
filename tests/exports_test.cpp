// What the built library shows to the dynamic linker.
#include <cstdio>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string OutputOf(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return output;
    char part[4096];
    while (std::fgets(part, sizeof part, pipe))
        output += part;
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

// kind: an option of nm.
std::set<std::string> DynamicSymbols(const std::string& kind) {
    std::istringstream lines(OutputOf("nm --dynamic --demangle " + kind + " " KFFAX_LIBRARY));
    std::set<std::string> names;
    for (std::string line; std::getline(lines, line);)
        names.insert(line.substr(19)); // behind an address and a type
    return names;
}

TEST(Exports, ExactlyTheInterface) {
    std::set<std::string> expected = {
        "StartRedirectToBuffer(void**, tagHANDLE**, unsigned int, unsigned char*, unsigned long long)",
        "StartRedirectToBuffer(void**, tagHANDLE**, unsigned int)",
        "StopRedirectToBuffer(void*, unsigned char**, unsigned long long*)"};
    std::istringstream names(
        "fltInfo fltInfoFAX fltLoad fltLoadFAX fltSave fltSaveFAX fltLoadBuffer fltLoadBufferFAX "
        "fltSaveBuffer fltSaveBufferFAX K_LoadRawFax K_SaveRawFax K_LoadTiledFax K_SaveTiledFax "
        "SaveFaxTile SetBitmapPalette ShortenRunLengthWidths InitDecodeG34 QuitDecodeG34 "
        "DecodeG4 DecodeG3 InfoDecodeG3 InitEncodeG34 QuitEncodeG34 EncodeG4 EncodeG3 ");
    for (std::string name; names >> name;)
        expected.insert(name);
    EXPECT_EQ(DynamicSymbols("--defined-only"), expected);
}

TEST(Exports, UndefinedAreKernelAndRuntime) {
    const std::set<std::string> undefined = DynamicSymbols("--undefined-only");
    if (undefined.count("__asan_init") != 0)
        GTEST_SKIP() << "a sanitizer's library";
    for (const std::string& name : undefined) {
        const bool kernel = name.rfind("K_", 0) == 0 && name.find('@') == std::string::npos;
        const bool runtime = name.find("@GLIBC") != std::string::npos ||
                             name.find("@CXXABI") != std::string::npos ||
                             name.find("@GCC") != std::string::npos;
        const bool weak = name.rfind("_ITM_", 0) == 0 || name == "__gmon_start__";
        EXPECT_TRUE(kernel || runtime || weak) << name;
    }
}

// A program with functions of the same names does not take the filter's own calls over; one with the kernel's
// does, as these tests rely on.
TEST(Exports, OnlyTheKernelIsLookedUp) {
    const std::set<std::string> exported = DynamicSymbols("--defined-only");
    std::istringstream relocations(OutputOf("readelf -r -W --demangle " KFFAX_LIBRARY));
    for (std::string line; std::getline(relocations, line);)
        for (const std::string& name : exported)
            EXPECT_EQ(line.find(' ' + name + " +"), std::string::npos) << line;
    EXPECT_NE(relocations.str().find(" K_RedirectedRead +"), std::string::npos);
}

TEST(Exports, NameAndKernelDependency) {
    const std::string dynamic = OutputOf("readelf -d -W " KFFAX_LIBRARY);
    EXPECT_NE(dynamic.find("Library soname: [libkffax.so.19]"), std::string::npos) << dynamic;
    EXPECT_NE(dynamic.find("Shared library: [libktkrn.so.19]"), std::string::npos) << dynamic;
}

} // namespace
