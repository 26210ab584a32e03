// Pages between kfax and other programs, made while the test runs: what they write is what kfax reads, and
// what kfax writes is what they read.
#include "tests/kfax_run.h"

#include <cstdlib>

namespace {

// Makes or reads a file with the shell. A program that is not installed is left out, and named.
struct Exchange {
    const char* program;
    const char* command;
    const char* kfax; // its input, or output, with options
};

const std::string kGhostscript = "gs -q -dSAFER -dNOPAUSE -dBATCH -dAdjustWidth=0 -r204x196 -g1728x90 -o ";

class KfaxStrangers : public KfaxRuns {
protected:
    void SetUp() override {
        KfaxRuns::SetUp();
        writePbm("in.pbm", picture_);
        ASSERT_EQ(kfax("save in.pbm in.pdf --dpi 204x196").code, 0);
        ASSERT_EQ(std::system("pnmtotiff -quiet -miniswhite in.pbm >white.tif; pnmtotiff -quiet -minisblack "
                              "in.pbm >black.tif"),
                  0);
    }

    static bool IsInstalled(const std::string& program) {
        return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
    }

    void ExpectRead(const std::string& command, const std::string& input) {
        SCOPED_TRACE(command);
        ASSERT_EQ(std::system(("( " + command + " ) 2>said").c_str()), 0) << textOf("said");
        const Outcome load = kfax("load " + input + " out.pbm --quiet");
        EXPECT_EQ(load.code, 0) << load.said;
        EXPECT_TRUE(readPbm("out.pbm") == picture_);
    }

    Pixels picture_ = testPicture(1728, 90);
};

TEST_F(KfaxStrangers, WhatLibtiffsToolsCopyIsRead) {
    for (const char* input : {"white.tif", "black.tif"})
        for (const char* coding : {"none", "g3:1d", "g3:1d:fill", "g3:2d", "g3:2d:fill", "g4"})
            for (const char* order : {"msb2lsb", "lsb2msb"})
                for (const char* strip : {"-r 1", "-r 7", "-r 90", "-t -w 256 -l 64"})
                    ExpectRead(std::string("tiffcp ") + strip + " -c " + coding + " -f " + order + " " +
                                   input + " out.tif",
                               "out.tif");
}

TEST_F(KfaxStrangers, WhatOthersWriteIsRead) {
    static constexpr const char* kSize = " --width 1728 --height 90";
    for (const char* device : {"tiffg3", "tiffg32d", "tiffg4", "tiffcrle"})
        ExpectRead(kGhostscript + "out.tif -sDEVICE=" + device + " in.pdf", "out.tif");
    ExpectRead(kGhostscript + "out.g3 -sDEVICE=faxg3 in.pdf", std::string("out.g3 --format g3") + kSize);
    ExpectRead(kGhostscript + "out.g3 -sDEVICE=faxg32d in.pdf", std::string("out.g3 --format g3-2d") + kSize);
    ExpectRead(kGhostscript + "out.g4 -sDEVICE=faxg4 in.pdf", std::string("out.g4 --format g4") + kSize);
    constexpr Exchange kExchanges[] = {
        {"gs", "gs -q -dSAFER -sDEVICE=pdfwrite -o out.pdf in.pdf", "out.pdf"},
        {"tiff2pdf", "tiffcp -c g4 -r 90 white.tif g4.tif; tiff2pdf -o out.pdf g4.tif", "out.pdf"},
        {"tiff2pdf", "tiffcp -c g4 -r 8 black.tif g4.tif; tiff2pdf -o out.pdf g4.tif", "out.pdf"},
        {"pbmtog3", "pbmtog3 in.pbm >out.g3", "out.g3 --format g3 --width 1728 --height 90"},
        {"pbmtog3", "pbmtog3 -reversebits in.pbm >out.g3",
         "out.g3 --format g3 --width 1728 --height 90 --reverse-bits"},
        {"img2pdf", "tiffcp -c g4 -r 90 white.tif g4.tif; img2pdf g4.tif -o out.pdf", "out.pdf"},
        {"convert", "convert in.pbm -compress Group4 out.tif", "out.tif"},
        {"convert", "convert in.pbm -compress Fax out.tif", "out.tif"},
        {"convert", "convert in.pbm fax:out.g3", "out.g3 --format g3 --width 1728 --height 90"},
    };
    for (const Exchange& exchange : kExchanges)
        if (IsInstalled(exchange.program))
            ExpectRead(exchange.command, exchange.kfax);
        else
            std::printf("%s is not installed\n", exchange.program);
}

TEST_F(KfaxStrangers, WhatKfaxWritesOthersRead) {
    constexpr Exchange kExchanges[] = {
        {"tiff2pdf", "tiff2pdf -o out.pdf out.tif; pdfimages out.pdf image; mv image-000.pbm read.pbm",
         "out.tif"},
        {"pdfimages", "pdfimages out.pdf image; mv image-000.pbm read.pbm", "out.pdf --dpi 204x196"},
        {"tifftopnm", "tifftopnm -quiet out.tif >read.pbm",
         "out.tif --format g3 --rows-per-strip 7 --reverse-bits"},
        {"tifftopnm", "tifftopnm -quiet out.tif >read.pbm", "out.tif --format g3-2d --no-invert"},
        {"tifftopnm", "tifftopnm -quiet out.tif >read.pbm", "out.tif --format g3-noeol"},
        {"tifftopnm", "tifftopnm -quiet out.tif >read.pbm", "out.tif --tile 256x64"},
        {"g3topbm", "g3topbm out.g3 >read.pbm", "out.g3 --format g3"},
        {"g3topbm", "g3topbm -reversebits out.g3 >read.pbm", "out.g3 --format g3 --reverse-bits"},
        {"fax2tiff",
         "fax2tiff -4 -M -o read.tif out.g4; tifftopnm -quiet read.tif | pamcut -height 90 >read.pbm",
         "out.g4"},
        {"convert", "convert out.tif -depth 1 read.pbm", "out.tif"},
    };
    for (const Exchange& exchange : kExchanges) {
        SCOPED_TRACE(exchange.command);
        if (!IsInstalled(exchange.program))
            continue;
        EXPECT_EQ(kfax("save in.pbm " + std::string(exchange.kfax)).code, 0);
        ASSERT_EQ(std::system(("( " + std::string(exchange.command) + " ) 2>said").c_str()), 0)
            << textOf("said");
        EXPECT_TRUE(readPbm("read.pbm") == picture_);
    }
}

} // namespace
