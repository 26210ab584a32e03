// What the built library shows to the dynamic linker.
#include <cstdio>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string outputOf(const std::string& command) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return output;
    char part[4096];
    while (std::fgets(part, sizeof part, pipe) != nullptr)
        output += part;
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

struct Symbols {
    std::set<std::string> defined, undefined;
};

Symbols dynamicSymbols() {
    Symbols symbols;
    std::istringstream lines(outputOf("readelf --dyn-syms --demangle -W " KFFAX_LIBRARY));
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string number, value, size, type, binding, visibility, section, name;
        words >> number >> value >> size >> type >> binding >> visibility >> section;
        std::getline(words >> std::ws, name);
        if (name.empty() || number == "Num:" || binding == "LOCAL")
            continue;
        if (section == "UND")
            symbols.undefined.insert(name);
        else if (type != "OBJECT" || section != "ABS")
            symbols.defined.insert(name);
    }
    return symbols;
}

TEST(Exports, ExactlyTheInterface) {
    const std::set<std::string> expected = {
        "fltInfo",
        "fltInfoFAX",
        "fltLoad",
        "fltLoadFAX",
        "fltSave",
        "fltSaveFAX",
        "fltLoadBuffer",
        "fltLoadBufferFAX",
        "fltSaveBuffer",
        "fltSaveBufferFAX",
        "K_LoadRawFax",
        "K_SaveRawFax",
        "K_LoadTiledFax",
        "K_SaveTiledFax",
        "SaveFaxTile",
        "SetBitmapPalette",
        "ShortenRunLengthWidths",
        "InitDecodeG34",
        "QuitDecodeG34",
        "DecodeG4",
        "DecodeG3",
        "InfoDecodeG3",
        "InitEncodeG34",
        "QuitEncodeG34",
        "EncodeG4",
        "EncodeG3",
        "StartRedirectToBuffer(void**, tagHANDLE**, unsigned int, unsigned char*, unsigned long long)",
        "StartRedirectToBuffer(void**, tagHANDLE**, unsigned int)",
        "StopRedirectToBuffer(void*, unsigned char**, unsigned long long*)"};
    EXPECT_EQ(dynamicSymbols().defined, expected);
}

TEST(Exports, UndefinedAreKernelAndRuntime) {
    const std::set<std::string> undefined = dynamicSymbols().undefined;
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

TEST(Exports, NameAndKernelDependency) {
    const std::string dynamic = outputOf("readelf -d -W " KFFAX_LIBRARY);
    EXPECT_NE(dynamic.find("Library soname: [libkffax.so.19]"), std::string::npos) << dynamic;
    EXPECT_NE(dynamic.find("Shared library: [libktkrn.so.19]"), std::string::npos) << dynamic;
}

} // namespace
