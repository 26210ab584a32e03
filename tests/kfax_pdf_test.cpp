// PDF files with fax pictures of every kind, coded by libtiff, and damaged and hostile ones.
#include "tests/kfax_run.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <tiffio.h>

namespace {

struct CloseTiff {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

std::string coded(const Pixels& pixels, uint16_t compression, uint32_t options = 0) {
    std::unique_ptr<TIFF, CloseTiff> tiff(TIFFOpen("coded.tif", "w"));
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, pixels.width);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, pixels.height);
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, compression);
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, pixels.height);
    if (compression == COMPRESSION_CCITTFAX3)
        TIFFSetField(tiff.get(), TIFFTAG_GROUP3OPTIONS, options);
    Bytes rows = pixels.rows;
    TIFFWriteEncodedStrip(tiff.get(), 0, rows.data(), static_cast<tmsize_t>(rows.size()));
    tiff.reset();
    tiff.reset(TIFFOpen("coded.tif", "r"));
    std::string bytes(TIFFGetStrileByteCount(tiff.get(), 0), '\0');
    TIFFReadRawStrip(tiff.get(), 0, bytes.data(), static_cast<tmsize_t>(bytes.size()));
    return bytes;
}

// A row's codes are the same in all one-dimensional streams: without the line ends, and bits on end.
std::string withoutEols(const std::string& rows) {
    std::string bits, packed;
    for (const char c : rows)
        for (int bit = 7; bit >= 0; --bit)
            bits += (c >> bit & 1) != 0 ? '1' : '0';
    for (size_t at = 0; (at = bits.find("000000000001", at)) != std::string::npos;)
        bits.erase(at, 12);
    bits.resize((bits.size() + 7) / 8 * 8, '0');
    for (size_t i = 0; i < bits.size(); i += 8)
        packed += static_cast<char>(std::stoi(bits.substr(i, 8), nullptr, 2));
    return packed;
}

std::string hex(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        text += "0123456789abcdef"[c >> 4 & 15];
        text += "0123456789abcdef"[c & 15];
    }
    return text + ">";
}

// Objects of a file, numbered from 1; the first is the catalogue.
struct Pdf {
    std::vector<std::string> objects;

    size_t add(const std::string& object) {
        objects.push_back(object);
        return objects.size();
    }
    size_t addStream(const std::string& dict, const std::string& bytes) {
        return add("<< " + dict + " /Length " + std::to_string(bytes.size()) + " >>\nstream\n" + bytes +
                   "\nendstream");
    }
    std::string text() const {
        std::string file = "%PDF-1.5\n", table;
        for (size_t i = 0; i < objects.size(); ++i) {
            char entry[32];
            std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", file.size());
            table += entry;
            file += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
        }
        const std::string size = std::to_string(objects.size() + 1);
        const size_t at = file.size();
        return file + "xref\n0 " + size + "\n0000000000 65535 f \n" + table + "trailer << /Size " + size +
               " /Root 1 0 R >>\nstartxref\n" + std::to_string(at) + "\n%%EOF\n";
    }
    void write(const std::string& name) const {
        const std::string file = text();
        writeFile(name, Bytes(file.begin(), file.end()));
    }
};

// A page for each content, all with the same resources, which they inherit.
Pdf document(const std::vector<std::string>& contents, const std::string& page = "") {
    Pdf pdf;
    pdf.add("<< /Type /Catalog /Pages 2 0 R >>");
    pdf.add("");
    pdf.add("");
    std::string kids;
    for (const std::string& content : contents) {
        const size_t stream = pdf.addStream("", content);
        kids += std::to_string(pdf.add("<< /Type /Page /Parent 2 0 R " + page + " /Contents " +
                                       std::to_string(stream) + " 0 R >>")) +
                " 0 R ";
    }
    pdf.objects[1] = "<< /Type /Pages /MediaBox [0 0 200 200] /Resources << /XObject 3 0 R >> /Kids [" +
                     kids + "] /Count " + std::to_string(contents.size()) + " >>";
    return pdf;
}

std::string pictureDict(const Pixels& pixels, const std::string& filter, const std::string& parameters,
                        const std::string& more = "/ColorSpace /DeviceGray") {
    return "/Type /XObject /Subtype /Image /BitsPerComponent 1 /Width " + std::to_string(pixels.width) +
           " /Height " + std::to_string(pixels.height) + " /Filter " + filter + " /DecodeParms " +
           parameters + " " + more;
}

constexpr const char* kDraw = "q 72 0 0 36 10 20 cm /P Do Q";

// A page that draws one picture, object 6.
void writeOne(const std::string& name, const std::string& dict, const std::string& bytes) {
    Pdf pdf = document({kDraw});
    pdf.objects[2] = "<< /P " + std::to_string(pdf.addStream(dict, bytes)) + " 0 R >>";
    pdf.write(name);
}

Pixels inverted(Pixels pixels) {
    for (size_t y = 0; y < pixels.height; ++y)
        for (size_t i = 0; i < pixels.rowBytes(); ++i) {
            const bool last = i + 1 == pixels.rowBytes() && pixels.width % 8 != 0;
            pixels.row(y)[i] ^= static_cast<uint8_t>(last ? 0xFF << (8 - pixels.width % 8) : 0xFF);
        }
    return pixels;
}

// The first rows; a picture may take fewer of them than were coded, or more.
Pixels withHeight(Pixels pixels, uint32_t height) {
    pixels.height = height;
    pixels.rows.resize(pixels.rowBytes() * height);
    return pixels;
}

enum class Data { G4, G3, G3Fill, G3Rows, G3Bits, Mixed, MixedFill };

struct Picture {
    Data data;
    const char* parameters; // but for Columns
    const char* more = "/ColorSpace /DeviceGray";
    bool inverted = false;
    int height = 70; // of the picture; 70 are coded
    int code = 0;
};
constexpr Picture kPictures[] = {
    {Data::G4, "/K -1"},
    {Data::G4, "/K -7 /Rows 70 /EndOfBlock false"},
    {Data::G4, "/K -1.0 /Rows 0"},
    {Data::G4, "/K -1 /BlackIs1 true", "/ColorSpace /DeviceGray", true},
    {Data::G4, "/K -1", "/ColorSpace /CalGray /Decode [1 0]", true},
    {Data::G4, "/K -1 /BlackIs1 true", "/Decode [1 0] /ImageMask true"},
    {Data::G4, "/K -1", "/ImageMask true /Decode [0 1]"},
    {Data::G4, "/K -1", "/ColorSpace [/Indexed /DeviceRGB 1 <FFFFFF 000000>]", true},
    {Data::G4, "/K -1", "/ColorSpace [/Indexed /DeviceGray 1 <00FF>]"},
    {Data::G4, "/K -1 /BlackIs1 true", "/ColorSpace [/Separation /Black /DeviceGray null]"},
    {Data::G4, "/K -1 /Rows 70", "", false, 50},
    {Data::G4, "/K -1 /Rows 50", "", false, 70},
    {Data::G4, "/K -1 /Rows 70", "", false, 80, 3},
    {Data::G3, "/K 0 /EndOfLine true"},
    {Data::G3, ""},
    {Data::G3, "/Rows 70 /EndOfBlock false /DamagedRowsBeforeError 3"},
    {Data::G3Fill, "/EndOfLine true /EncodedByteAlign true"},
    {Data::G3Rows, "/EncodedByteAlign true /EndOfBlock false /Rows 70"},
    {Data::G3Bits, "/K 0 /EndOfLine false /EndOfBlock false"},
    {Data::Mixed, "/K 4 /EndOfLine true"},
    {Data::MixedFill, "/K 1 /EndOfLine true /EncodedByteAlign true", "/Decode [1 0]", true},
};

// 600 MiB of zeros in three layers of Flate.
constexpr const char* kBomb =
    "78daabb8f5f68ea25f0ca348db45f392232c8c210bb2229857b5b1f89836655d627df07a46cb83ecac74ee501d86f6231717"
    "a531b204366ac91a6de638f2fb5ce421fdfcbc7deffbfdb74f3e69c0f359fe7fbdedf96dec0c0c0c094f9ed5afb35bd3cf78"
    "f8e0ab87a75f868384deec7bfbcec7dcbdb1fef97cbf338c4091c5e5b55f2af33f2b7ef8fe29298b0f2820b1f7eff4a71f9f"
    "89156cdff5b3228d1f2c72bf09a4748292049064d005732e403886c89c5199519951990191f9f439d532de9e4de6fe7ab9b8"
    "f4dfcc40a1f7391b4b7748a8e5979b8a1801005fb5d1c7>";
constexpr const char* kLayers = "/ASCIIHexDecode /FlateDecode /FlateDecode /FlateDecode";

class KfaxPdf : public KfaxRuns {
protected:
    std::string dataOf(Data data, const Pixels& pixels) {
        switch (data) {
        case Data::G4:
            return coded(pixels, COMPRESSION_CCITTFAX4);
        case Data::G3:
            return coded(pixels, COMPRESSION_CCITTFAX3);
        case Data::G3Fill:
            return coded(pixels, COMPRESSION_CCITTFAX3, GROUP3OPT_FILLBITS);
        case Data::G3Rows:
            return coded(pixels, COMPRESSION_CCITTRLE);
        case Data::G3Bits:
            return withoutEols(coded(pixels, COMPRESSION_CCITTFAX3));
        case Data::Mixed:
            return coded(pixels, COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING);
        case Data::MixedFill:
            return coded(pixels, COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING | GROUP3OPT_FILLBITS);
        }
        return "";
    }
    void expectPicture(const std::string& file, const Pixels& picture, int code = 0) {
        const Outcome load = kfax("load " + file + " out.pbm");
        EXPECT_EQ(load.code, code) << load.said;
        EXPECT_TRUE(readPbm("out.pbm") == picture);
    }
};

TEST_F(KfaxPdf, EveryKindOfParameters) {
    const Pixels picture = testPicture(1728, 70);
    for (const Picture& kind : kPictures) {
        SCOPED_TRACE(std::string(kind.parameters) + " " + kind.more);
        Pixels expected = withHeight(picture, static_cast<uint32_t>(kind.height));
        const std::string dict =
            pictureDict(expected, "/CCITTFaxDecode", std::string("<< ") + kind.parameters + " >>", kind.more);
        writeOne("one.pdf", dict, dataOf(kind.data, picture));
        if (kind.inverted)
            expected = inverted(expected);
        expectPicture("one.pdf", expected, kind.code);
        EXPECT_EQ(kfax("verify one.pdf").code, kind.code);
        const auto told = jsonLines(kfax("info --json one.pdf").told);
        EXPECT_EQ(told[0]["name"], "PDF");
        EXPECT_EQ(told[0]["x_resolution"], 1728);
        EXPECT_EQ(told[0]["y_resolution"], 2 * kind.height);
    }
}

// The picture takes its rows from the bytes of the coded ones, however these are cut.
TEST_F(KfaxPdf, OtherColumnsThanTheWidth) {
    const Pixels picture = testPicture(304, 60);
    const std::string bytes = coded(picture, COMPRESSION_CCITTFAX4);
    for (const uint32_t width : {300u, 152u, 608u, 1216u}) {
        Pixels expected{width, 60 * 38 / ((width + 7) / 8), picture.rows};
        for (uint32_t y = 0; y < expected.height; ++y)
            for (uint32_t x = width; x < expected.rowBytes() * 8; ++x)
                expected.row(y)[x / 8] &= static_cast<uint8_t>(~(0x80 >> x % 8));
        writeOne("one.pdf", pictureDict(expected, "/CCITTFaxDecode", "<< /K -1 /Columns 304 >>"), bytes);
        expectPicture("one.pdf", expected);
        std::string damaged = bytes;
        damaged[bytes.size() / 2] = static_cast<char>(damaged[bytes.size() / 2] ^ 0x55);
        writeOne("bad.pdf", pictureDict(expected, "/CCITTFaxDecode", "<< /K -1 /Columns 304 >>"), damaged);
        expectRefused(1, "load bad.pdf no.pbm --repair"); // its lines are no rows of the picture
    }
}

TEST_F(KfaxPdf, FiltersInFront) {
    const Pixels picture = testPicture(304, 60);
    const std::string g4 = coded(picture, COMPRESSION_CCITTFAX4), fax = " << /K -1 /Columns 304 >>";
    writeOne("hex.pdf", pictureDict(picture, "[/ASCIIHexDecode /CCITTFaxDecode]", "[null" + fax + "]"),
             hex(g4));
    expectPicture("hex.pdf", picture);
    const Pixels wide = testPicture(1728, 20);
    writeOne("none.pdf", "/Subtype /Image /Width 1728 /Height 20 /Filter [/ASCIIHexDecode /CCITTFaxDecode]",
             hex(coded(wide, COMPRESSION_CCITTFAX3)));
    expectPicture("none.pdf", wide);
    writeOne(
        "twice.pdf",
        pictureDict(picture, "[/ASCIIHexDecode /ASCIIHexDecode /CCITTFaxDecode]", "[null null" + fax + "]"),
        hex(hex(g4)));
    expectPicture("twice.pdf", picture);
    writeOne("odd.pdf", pictureDict(picture, "[/CCITTFaxDecode /ASCIIHexDecode]", "[" + fax + "null]"), g4);
    expectRefused(1, "load odd.pdf out.png");
    writeOne("cut.pdf", pictureDict(picture, "[/ASCIIHexDecode /CCITTFaxDecode]", "[null" + fax + "]"),
             hex(g4.substr(0, g4.size() / 2)));
    EXPECT_EQ(kfax("load cut.pdf out.png").code, 3);
}

// Pages in the order of drawing: inherited resources, a form in a form, an inline picture, pictures that are
// no fax, a picture on two pages, twice on one page, and never drawn.
TEST_F(KfaxPdf, PicturesAreNumberedAsThePagesDrawThem) {
    const Pixels first = testPicture(304, 60), second = testPicture(160, 40), third = testPicture(48, 8);
    const std::string fax = "<< /K -1 /Columns ";
    const std::string inlinePicture =
        "q 48 0 0 8 0 0 cm BI /W 48 /H 8 /BPC 1 /CS /G /F [/AHx /CCF] /DP [null "
        "<< /K -1 /Columns 48 >>] ID " +
        hex(coded(third, COMPRESSION_CCITTFAX4)) + " EI Q ";
    Pdf pdf = document({std::string(kDraw) + " q 1 0 0 1 0 0 cm /P Do Q " + inlinePicture,
                        "q 0.5 0 0 0.5 0 0 cm /F Do Q /Grey Do /Nothing Do", kDraw});
    const auto number = [](size_t object) { return std::to_string(object) + " 0 R"; };
    const std::string g4 = coded(first, COMPRESSION_CCITTFAX4);
    const std::string columns = number(pdf.add("304")), parameters = number(pdf.add(fax + columns + " >>"));
    const std::string p =
        number(pdf.addStream(pictureDict(first, number(pdf.add("/CCITTFaxDecode")), parameters), g4));
    const std::string q = number(pdf.addStream(pictureDict(second, "/CCITTFaxDecode", fax + "160 >>"),
                                               coded(second, COMPRESSION_CCITTFAX4)));
    const std::string grey = number(
        pdf.addStream("/Subtype /Image /Width 1 /Height 1 /BitsPerComponent 8 /ColorSpace /DeviceGray", "x"));
    const std::string inner = number(pdf.addStream(
        "/Subtype /Form /BBox [0 0 9 9] /Resources << /XObject << /P " + q + " >> >>", "/P Do"));
    const std::string form = number(pdf.addStream(
        "/Subtype /Form /BBox [0 0 9 9] /Matrix [144 0 0 72 0 0] /Resources << /XObject << /G " + inner +
            " >> >>",
        "/G Do"));
    pdf.objects[2] = "<< /P " + p + " /F " + form + " /Grey " + grey + " /Unused " + p + " >>";
    pdf.write("all.pdf");

    const Outcome load = kfax("load all.pdf out.pbm --all-pages");
    EXPECT_EQ(load.code, 0);
    EXPECT_EQ(load.said, "kfax: all.pdf: 1 picture is no fax and skipped; pdfimages takes out such ones\n");
    const std::array expected{&first, &third, &second, &first};
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_TRUE(readPbm("out-00" + std::to_string(i + 1) + ".pbm") == *expected[i]) << i;
    EXPECT_FALSE(std::filesystem::exists("out-005.pbm"));
    const auto told = jsonLines(kfax("info --json --quiet all.pdf").told);
    ASSERT_EQ(told.size(), 4u);
    EXPECT_EQ(told[2]["x_resolution"], 160); // the form's matrix and the page's
    EXPECT_EQ(told[2]["y_resolution"], 80);
    EXPECT_EQ(told[3]["layout"], "a picture on page 3 of 3");
    EXPECT_EQ(kfax("load all.pdf one.pbm --page 2 --quiet").said, "");
    EXPECT_TRUE(readPbm("one.pbm") == third);
    expectRefused(1, "load all.pdf five.pbm --page 5 --quiet");
    EXPECT_EQ(kfax("load all.pdf all.tif").code, 0);
    EXPECT_EQ(jsonLines(kfax("info --json all.tif").told).size(), 4u);
    EXPECT_EQ(kfax("load all.pdf sheet.png --thumbnail 64").code, 0);
}

// How the page turns the picture, as poppler and Ghostscript show it.
TEST_F(KfaxPdf, TurnedAndMirroredPictures) {
    const Pixels picture = testPicture(304, 60);
    const std::string dict = pictureDict(picture, "/CCITTFaxDecode", "<< /K -1 /Columns 304 >>");
    const std::string g4 = coded(picture, COMPRESSION_CCITTFAX4);
    struct Turn {
        const char* page;
        const char* matrix;
        int orientation;
    };
    constexpr Turn kTurns[] = {
        {"", "72 0 0 36 0 0", 1},
        {"", "-72 0 0 36 0 0", 2},
        {"", "-72 0 0 -36 0 0", 3},
        {"", "72 0 0 -36 0 0", 4},
        {"", "0 -72 -36 0 0 0", 5},
        {"", "0 -72 36 0 0 0", 6},
        {"", "0 72 36 0 0 0", 7},
        {"", "0 72 -36 0 0 0", 8},
        {"/Rotate 90", "72 0 0 36 0 0", 6},
        {"/Rotate 180", "72 0 0 36 0 0", 3},
        {"/Rotate -90", "72 0 0 36 0 0", 8},
        {"/Rotate 90", "0 72 -36 0 0 0", 1},
    };
    for (const Turn& turn : kTurns) {
        SCOPED_TRACE(std::string(turn.page) + " " + turn.matrix);
        Pdf pdf = document({std::string("q ") + turn.matrix + " cm /P Do Q"}, turn.page);
        pdf.objects[2] = "<< /P " + std::to_string(pdf.addStream(dict, g4)) + " 0 R >>";
        pdf.write("one.pdf");
        const auto told = jsonLines(kfax("info --json one.pdf").told);
        EXPECT_EQ(told[0]["orientation"], turn.orientation);
        EXPECT_EQ(told[0]["x_resolution"], 304);
        EXPECT_EQ(told[0]["y_resolution"], 120);
        const bool turned = turn.orientation > 4;
        EXPECT_EQ(kfax("load one.pdf out.pbm").code, 0);
        EXPECT_EQ(readPbm("out.pbm").width, turned ? 60u : 304u);
    }
}

TEST_F(KfaxPdf, EncryptedAndPackedFiles) {
    const Pixels picture = testPicture(304, 60);
    writeOne("one.pdf", pictureDict(picture, "/CCITTFaxDecode", "<< /K -1 /Columns 304 >>"),
             coded(picture, COMPRESSION_CCITTFAX4));
    const auto qpdf = [](const std::string& arguments) {
        return std::system(("qpdf --warning-exit-0 " + arguments).c_str());
    };
    ASSERT_EQ(qpdf("--object-streams=generate one.pdf packed.pdf"), 0);
    expectPicture("packed.pdf", picture);
    ASSERT_EQ(qpdf("--encrypt '' owner 256 -- one.pdf empty.pdf"), 0);
    expectPicture("empty.pdf", picture);
    ASSERT_EQ(qpdf("--allow-weak-crypto --encrypt secret owner 128 -- one.pdf secret.pdf"), 0);
    expectRefused(1, "load secret.pdf no.pbm");
    expectRefused(1, "load secret.pdf no.pbm --password wrong");
    expectPicture("--password secret secret.pdf", picture);
    expectPicture("--password owner secret.pdf", picture);
    for (const char* command : {"info", "verify"})
        EXPECT_EQ(kfax(std::string(command) + " secret.pdf --password secret").code, 0);

    Bytes moved = readFile("one.pdf"); // every offset of the table is wrong
    moved.insert(moved.begin() + 9, {'%', ' ', '\n'});
    writeFile("moved.pdf", moved);
    expectPicture("moved.pdf", picture);
    EXPECT_NE(kfax("load moved.pdf out.pbm").said.find("was mended"), std::string::npos);
}

struct Hostile {
    const char* what;
    const char* dict; // of the picture
    const char* content;
};
constexpr Hostile kHostile[] = {
    {"no width", "/Height 60 /Filter /CCITTFaxDecode", kDraw},
    {"a size of 2^62", "/Width 4611686018427387904 /Height 60 /Filter /CCITTFaxDecode", kDraw},
    {"half a gigabyte of nothing", "/Width 65535 /Height 65535 /Filter /CCITTFaxDecode", kDraw},
    {"too wide", "/Width 304 /Height 60 /Filter /CCITTFaxDecode /DecodeParms << /Columns 250000 >>", kDraw},
    {"no columns", "/Width 304 /Height 60 /Filter /CCITTFaxDecode /DecodeParms << /Columns 0 >>", kDraw},
    {"two-dimensional rows without line ends",
     "/Width 304 /Height 60 /Filter /CCITTFaxDecode /DecodeParms << /K 4 >>", kDraw},
    {"eight bits", "/Width 304 /Height 60 /BitsPerComponent 8 /Filter /CCITTFaxDecode", kDraw},
    {"the data elsewhere", "/Width 304 /Height 60 /Filter /CCITTFaxDecode /F (/etc/passwd)", kDraw},
    {"seven filters",
     "/Width 304 /Height 60 /Filter [/ASCIIHexDecode /ASCIIHexDecode /ASCIIHexDecode /ASCIIHexDecode "
     "/ASCIIHexDecode /ASCIIHexDecode /CCITTFaxDecode]",
     kDraw},
    {"a predictor of a gigabyte a row",
     "/Width 304 /Height 60 /Filter [/FlateDecode /CCITTFaxDecode] /DecodeParms [<< /Predictor 12 /Columns "
     "1073741824 >> null]",
     kDraw},
    {"no fax", "/Width 304 /Height 60 /Filter /FlateDecode", kDraw},
    {"nothing drawn", "/Width 304 /Height 60 /Filter /CCITTFaxDecode", "q Q"},
};

TEST_F(KfaxPdf, HostileFilesAreRefused) {
    for (const Hostile& hostile : kHostile) {
        SCOPED_TRACE(hostile.what);
        Pdf pdf = document({hostile.content});
        const std::string dict = std::string("/Subtype /Image ") + hostile.dict;
        pdf.objects[2] = "<< /P " + std::to_string(pdf.addStream(dict, std::string(50, 'x'))) + " 0 R >>";
        pdf.write("hostile.pdf");
        expectRefused(1, "load hostile.pdf out.png", "ulimit -t 20;");
    }
    // Forms that draw the next one eight times, ten deep.
    Pdf forms = document({"/F0 Do"});
    std::string dict;
    for (int i = 0; i < 10; ++i) {
        std::string draw;
        for (int k = 0; k < 8; ++k)
            draw += "/F" + std::to_string(i + 1) + " Do ";
        dict += "/F" + std::to_string(i) + " " +
                std::to_string(forms.addStream("/Subtype /Form /BBox [0 0 1 1]", draw)) + " 0 R ";
    }
    forms.objects[2] = "<< " + dict + " >>";
    forms.write("forms.pdf");
    expectRefused(1, "info forms.pdf", "ulimit -t 20;");
    // A form that draws itself, and pages below themselves.
    Pdf loop = document({"/F Do"});
    loop.objects[2] = "<< /F " + std::to_string(loop.addStream("/Subtype /Form", "/F Do /F Do")) + " 0 R >>";
    loop.write("loop.pdf");
    expectRefused(1, "info loop.pdf", "ulimit -t 20;");
    loop.objects[1] = "<< /Type /Pages /Kids [2 0 R 2 0 R] /Count 2 >>";
    loop.write("loop.pdf");
    expectRefused(1, "info loop.pdf", "ulimit -t 20;");
    const std::string whole = loop.text();
    writeFile("cut.pdf", Bytes(whole.begin(), whole.begin() + 40));
    expectRefused(1, "info cut.pdf");
}

TEST_F(KfaxPdf, SmallFilesTakeLittleMemory) {
    const std::string filter = std::string("/Filter [") + kLayers;
    Pdf pdf = document({kDraw});
    const std::string fax = "/Subtype /Image /Width 1728 /Height 900 " + filter + " /CCITTFaxDecode]";
    pdf.objects[2] = "<< /P " + std::to_string(pdf.addStream(fax, kBomb)) + " 0 R >>";
    pdf.write("picture.pdf");
    pdf = document({kDraw});
    pdf.objects[3] = "<< " + filter + "] /Length " + std::to_string(std::strlen(kBomb)) + " >>\nstream\n" +
                     kBomb + "\nendstream";
    pdf.write("content.pdf");
    pdf.objects = {"<< /Type /XRef /Size 5 /W [1 2 1] /Root 2 0 R " + pdf.objects[3].substr(2)};
    const std::string table = "%PDF-1.5\n1 0 obj\n" + pdf.objects[0] + "\nendobj\nstartxref\n9\n%%EOF\n";
    writeFile("table.pdf", Bytes(table.begin(), table.end()));
    for (const char* name : {"picture", "content", "table"}) {
        const Outcome info = kfax(std::string("info ") + name + ".pdf", "ulimit -t 20;");
        EXPECT_EQ(info.code, 1) << name;
        EXPECT_NE(info.said.find("made to do so"), std::string::npos) << info.said;
    }
}

} // namespace
