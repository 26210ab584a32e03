// PDF files (ISO 32000-1) of fax pictures.
#include "tools/kfax/write/pdf_output.h"

#include "tools/kfax/base/file_handle.h"
#include "tools/kfax/base/messages.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <qpdf/QPDFSystemError.hh>
#include <qpdf/QPDFWriter.hh>
#include <qpdf/QUtil.hh>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace kfax {

namespace {

constexpr double kPointsPerInch = 72;
constexpr double kMostPoints = 14400; // of a page's side, in units of the page: ISO 32000-1, annex C
constexpr double kUsualDpi = 200;     // where nobody knows the resolution
constexpr int kDecimals = 4;

// Coded data on disk, which qpdf asks for when it writes the file.
class Spooled : public QPDFObjectHandle::StreamDataProvider {
public:
    Spooled(std::FILE* spool, uint64_t offset, size_t size) : spool_(spool), offset_(offset), size_(size) {}
    void provideStreamData(QPDFObjGen const& /*object*/, Pipeline* pipeline) override {
        std::array<unsigned char, 1 << 16> block{};
        for (size_t done = 0; done < size_;) {
            const ssize_t got = pread(fileno(spool_), block.data(), std::min(block.size(), size_ - done),
                                      static_cast<off_t>(offset_ + done));
            if (got <= 0)
                throw std::runtime_error(got < 0 ? SystemReason(errno) : "the temporary file was cut");
            pipeline->write(block.data(), static_cast<size_t>(got));
            done += static_cast<size_t>(got);
        }
        pipeline->finish();
    }

private:
    std::FILE* spool_;
    uint64_t offset_;
    size_t size_;
};

// Takes the unit square, in which a picture stands upright, to a page of that size so that a picture of that
// orientation stands upright there.
std::string Placement(int orientation, double width, double height) {
    struct Turn {
        int A, B, C, D, E, F; // of width (A, C, E) and height (B, D, F)
    };
    static constexpr Turn kTurns[] = {
        {1, 0, 0, 1, 0, 0},   {-1, 0, 0, 1, 1, 0}, {-1, 0, 0, -1, 1, 1}, {1, 0, 0, -1, 0, 1},
        {0, -1, -1, 0, 1, 1}, {0, -1, 1, 0, 0, 1}, {0, 1, 1, 0, 0, 0},   {0, 1, -1, 0, 1, 0},
    };
    const Turn& turn = kTurns[std::clamp(orientation, 1, 8) - 1];
    std::string text = "q";
    for (const double value :
         {turn.A * width, turn.B * height, turn.C * width, turn.D * height, turn.E * width, turn.F * height})
        text.append(" ").append(QUtil::double_to_string(value, kDecimals, true));
    return text.append(" cm /Fax Do Q\n");
}

// D:20260101000000Z, or nothing.
std::string Date() {
    const char* const epoch = std::getenv("SOURCE_DATE_EPOCH");
    if (!epoch)
        return {};
    const std::string_view text(epoch);
    std::time_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    std::tm when{};
    if (error != std::errc() || end != text.data() + text.size() || !gmtime_r(&seconds, &when))
        throw std::runtime_error("SOURCE_DATE_EPOCH is no number of seconds");
    char date[80];
    std::snprintf(date, sizeof date, "D:%04d%02d%02d%02d%02d%02dZ", when.tm_year + 1900, when.tm_mon + 1,
                  when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec);
    return date;
}

// Whether an EOFB (T.6 § 2.4.1.1) is the last of the only strip, but for zero bits.
bool EndsWithEofb(const standin::Blocks& strip) {
    constexpr uint64_t kEofb = 0x001001;
    const unsigned char* const bytes = strip.Bytes.data() + strip.Offsets.front();
    size_t size = strip.ByteCounts.front();
    while (size != 0 && bytes[size - 1] == 0)
        --size;
    uint64_t last = 0;
    for (size_t i = size - std::min<size_t>(size, 4); i < size; ++i)
        last = last << 8 | bytes[i];
    while (last != 0 && last % 2 == 0)
        last /= 2;
    return (last & 0xFFFFFF) == kEofb;
}

QPDFObjectHandle Whole(uint64_t value) {
    return QPDFObjectHandle::newInteger(static_cast<long long>(value));
}

} // namespace

struct PdfOutput::Document {
    Document() {
        Pdf.emptyPDF();
        Info = Pdf.makeIndirectObject(QPDFObjectHandle::newDictionary());
        Info.replaceKey("/Producer", QPDFObjectHandle::newString("kfax"));
        Pdf.getTrailer().replaceKey("/Info", Info);
    }

    QPDFObjectHandle Keep(const unsigned char* bytes, size_t size) {
        if (std::fwrite(bytes, 1, size, Spool.File.get()) != size)
            throw std::runtime_error(SystemReason(errno));
        QPDFObjectHandle stream = QPDFObjectHandle::newStream(&Pdf);
        stream.replaceStreamData(std::make_shared<Spooled>(Spool.File.get(), SpoolSize, size),
                                 QPDFObjectHandle::newNull(), QPDFObjectHandle::newNull());
        SpoolSize += size;
        return stream;
    }

    ScratchFile Spool;
    uint64_t SpoolSize = 0;
    QPDF Pdf;
    QPDFObjectHandle Info;
    bool HasLargePages = false;
};

PdfOutput::PdfOutput() : document_(std::make_unique<Document>()) {}
PdfOutput::~PdfOutput() = default;

standin::Blocks PdfBlock(const _BITMAPHANDLE& bitmap) {
    standin::Blocks block;
    block.Width = bitmap.Width;
    block.Height = static_cast<unsigned>(bitmap.Height);
    return block;
}

void PdfOutput::Append(const CodedPage& page) {
    Document& document = *document_;
    const standin::Blocks& data = page.Strips;
    QPDFObjectHandle picture =
        document.Keep(data.Bytes.data() + data.Offsets.front(), data.ByteCounts.front());
    QPDFObjectHandle parameters = QPDFObjectHandle::newDictionary();
    parameters.replaceKey("/K", QPDFObjectHandle::newInteger(-1));
    parameters.replaceKey("/Columns", Whole(page.Width));
    parameters.replaceKey("/Rows", Whole(page.Height));
    if (!EndsWithEofb(page.Strips))
        parameters.replaceKey("/EndOfBlock", QPDFObjectHandle::newBool(false));
    if (page.BlackIsZero)
        parameters.replaceKey("/BlackIs1", QPDFObjectHandle::newBool(true));
    QPDFObjectHandle about = picture.getDict();
    about.replaceKey("/Type", QPDFObjectHandle::newName("/XObject"));
    about.replaceKey("/Subtype", QPDFObjectHandle::newName("/Image"));
    about.replaceKey("/Width", Whole(page.Width));
    about.replaceKey("/Height", Whole(page.Height));
    about.replaceKey("/BitsPerComponent", QPDFObjectHandle::newInteger(1));
    about.replaceKey("/ColorSpace", QPDFObjectHandle::newName("/DeviceGray"));
    about.replaceKey("/Filter", QPDFObjectHandle::newName("/CCITTFaxDecode"));
    about.replaceKey("/DecodeParms", parameters);

    const auto points = [](unsigned pixels, int dpi) {
        return pixels * kPointsPerInch / (dpi > 0 ? dpi : kUsualDpi);
    };
    double width = points(page.Width, page.XResolution);
    double height = points(page.Height, page.YResolution);
    if (page.Orientation >= 5)
        std::swap(width, height);
    const double unit = std::max({1.0, width / kMostPoints, height / kMostPoints});
    width /= unit;
    height /= unit;

    QPDFObjectHandle resources = QPDFObjectHandle::newDictionary();
    QPDFObjectHandle objects = QPDFObjectHandle::newDictionary();
    objects.replaceKey("/Fax", picture);
    resources.replaceKey("/XObject", objects);
    QPDFObjectHandle sheet = QPDFObjectHandle::newDictionary();
    sheet.replaceKey("/Type", QPDFObjectHandle::newName("/Page"));
    sheet.replaceKey("/MediaBox", QPDFObjectHandle::newArray(
                                      {QPDFObjectHandle::newInteger(0), QPDFObjectHandle::newInteger(0),
                                       QPDFObjectHandle::newReal(width, kDecimals, true),
                                       QPDFObjectHandle::newReal(height, kDecimals, true)}));
    if (unit > 1) {
        sheet.replaceKey("/UserUnit", QPDFObjectHandle::newReal(unit, kDecimals, true));
        document.HasLargePages = true;
    }
    sheet.replaceKey("/Resources", resources);
    sheet.replaceKey("/Contents",
                     QPDFObjectHandle::newStream(&document.Pdf, Placement(page.Orientation, width, height)));
    QPDFPageDocumentHelper(document.Pdf)
        .addPage(QPDFPageObjectHelper(document.Pdf.makeIndirectObject(sheet)), false);
}

void PdfOutput::Write(const std::string& name) {
    Document& document = *document_;
    if (std::fflush(document.Spool.File.get()) != 0)
        throw std::runtime_error(SystemReason(errno));
    if (const std::string date = Date(); !date.empty())
        document.Info.replaceKey("/CreationDate", QPDFObjectHandle::newString(date));
    // qpdf does not look whether the last bytes could be written.
    const FileHandle file(std::fopen(name.c_str(), "wbe"));
    if (!file)
        throw std::runtime_error(SystemReason(errno));
    try {
        QPDFWriter writer(document.Pdf, name.c_str(), file.get(), false);
        writer.setDeterministicID(true);
        writer.setStreamDataMode(qpdf_s_preserve);
        writer.setObjectStreamMode(qpdf_o_disable);
        writer.setMinimumPDFVersion(document.HasLargePages ? "1.6" : "1.4");
        writer.write();
        if (std::fflush(file.get()) != 0 || std::ferror(file.get()) != 0)
            throw std::runtime_error(SystemReason(errno));
    } catch (const QPDFSystemError& error) {
        throw std::runtime_error(SystemReason(error.getErrno()));
    }
}

} // namespace kfax
