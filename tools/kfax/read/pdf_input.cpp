// Reading pictures from PDF files.
//
// CCITTFaxDecode is ISO 32000-1, 7.4.6: its output is bytes, rows of Columns pixels each filled up to whole
// bytes, of which the picture takes its own rows, Width pixels each. The two sizes are mostly the same.
#include "tools/kfax/read/pdf_input.h"

#include "API/Filters/Fax/Common/Tif_faxx.h"
#include "tools/kfax/read/input.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <qpdf/Pipeline.hh>
#include <stdexcept>

namespace kfax {

namespace {

constexpr int kDefaultColumns = 1728;
constexpr unsigned kEolZeros = 11;
// Filters in front of the fax data can make any amount of a few bytes.
constexpr uint64_t kLeastData = uint64_t{16} << 20;
constexpr uint64_t kDataPerByte = 64;
constexpr int kMostFilters = 6;
// A page of blank lines, a bit each, is in order at any size that people print.
constexpr uint64_t kPlausiblePacked = uint64_t{128} << 20;
constexpr uint64_t kPackedPerByte = 1024;

constexpr const char* kOddPicture = "; save the PDF again with another program (qpdf, gs)";

struct FaxParameters {
    long long K = 0;
    long long Columns = kDefaultColumns;
    long long Rows = 0;
    bool EndOfLine = false;
    bool ByteAlign = false;
    bool BlackIs1 = false;
};

FaxParameters ParametersOf(QPDFObjectHandle dict) {
    FaxParameters parameters;
    if (!dict.isDictionary())
        return parameters;
    const auto number = [&](const char* key, long long& value) {
        QPDFObjectHandle object = dict.getKey(key);
        double real = 0;
        if (!object.getValueAsInt(value) && object.getValueAsNumber(real))
            value = static_cast<long long>(std::clamp<double>(real, INT_MIN, INT_MAX));
    };
    number("/K", parameters.K);
    number("/Columns", parameters.Columns);
    number("/Rows", parameters.Rows);
    dict.getKey("/EndOfLine").getValueAsBool(parameters.EndOfLine);
    dict.getKey("/EncodedByteAlign").getValueAsBool(parameters.ByteAlign);
    dict.getKey("/BlackIs1").getValueAsBool(parameters.BlackIs1);
    return parameters;
}

// Takes bytes up to a bound.
class Sink : public Pipeline {
public:
    explicit Sink(uint64_t most) : Pipeline("fax data", nullptr), most_(most) {}
    void write(unsigned char const* data, size_t size) override {
        if (size > most_ - Bytes.size()) {
            Exceeded = true; // qpdf takes the exception for damaged data
            throw std::runtime_error("too much data");
        }
        Bytes.insert(Bytes.end(), data, data + size);
    }
    void finish() override {}

    std::vector<unsigned char> Bytes;
    bool Exceeded = false;

private:
    uint64_t most_;
};

// What comes out in front of CCITTFaxDecode, the last of the stream's filters. The stream is without that
// one while qpdf decodes it.
struct FaxData {
    std::vector<unsigned char> Bytes;
    FaxParameters Parameters;
    bool Whole = true;
};

void CheckFilters(QPDFObjectHandle filters) {
    const int count = filters.getArrayNItems();
    if (count > kMostFilters)
        throw std::runtime_error("the picture has " + std::to_string(count) + " filters" + kOddPicture);
    for (int i = 0; i < count; ++i) {
        static constexpr std::array kBefore{"/FlateDecode",    "/LZWDecode",       "/ASCII85Decode",
                                            "/ASCIIHexDecode", "/RunLengthDecode", "/Crypt"};
        QPDFObjectHandle filter = filters.getArrayItem(i);
        const std::string name = filter.isName() ? filter.getName() : "?";
        if (i + 1 != count && std::find(kBefore.begin(), kBefore.end(), name) == kBefore.end())
            throw std::runtime_error("the picture has the filter " + name + " among its fax filters" +
                                     kOddPicture);
        if (i + 1 == count && name != "/CCITTFaxDecode" && name != "/CCF")
            throw std::runtime_error("the picture's fax data is coded again by the filter " + name +
                                     kOddPicture);
    }
}

FaxData ReadFaxData(QPDFObjectHandle stream, uint64_t fileSize) {
    QPDFObjectHandle dict = stream.getDict();
    if (dict.hasKey("/F"))
        throw std::runtime_error("the picture's data lies in another file, which is not read");
    const auto asArray = [](QPDFObjectHandle value) {
        return value.isArray() ? value.shallowCopy() : QPDFObjectHandle::newArray({value});
    };
    QPDFObjectHandle filters = asArray(dict.getKey("/Filter"));
    CheckFilters(filters);
    QPDFObjectHandle parameters = asArray(dict.getKey("/DecodeParms"));
    const int last = filters.getArrayNItems() - 1;
    FaxData data;
    if (last < parameters.getArrayNItems())
        data.Parameters = ParametersOf(parameters.getArrayItem(last));

    const QPDFObjectHandle filtersBefore = dict.getKey("/Filter");
    const QPDFObjectHandle parametersBefore = dict.getKey("/DecodeParms");
    filters.eraseItem(last);
    // qpdf decodes nothing where there are not as many of them.
    while (parameters.getArrayNItems() > last)
        parameters.eraseItem(parameters.getArrayNItems() - 1);
    while (parameters.getArrayNItems() < last)
        parameters.appendItem(QPDFObjectHandle::newNull());
    dict.replaceKey("/Filter", filters);
    dict.replaceKey("/DecodeParms", parameters);
    Sink sink(last == 0 ? UINT32_MAX : kLeastData + kDataPerByte * fileSize);
    bool decoded = false;
    data.Whole = stream.pipeStreamData(&sink, &decoded, 0, qpdf_dl_generalized, true, true);
    dict.replaceKey("/Filter", filtersBefore);
    dict.replaceKey("/DecodeParms", parametersBefore);
    if (sink.Exceeded)
        throw std::runtime_error(
            "the picture's data unpacks to far more than its file; it is damaged or made "
            "to do so");
    if (last != 0 && !decoded)
        throw std::runtime_error(
            std::string("the filters in front of the picture's fax data cannot be decoded") + kOddPicture);
    data.Bytes = std::move(sink.Bytes);
    if (data.Bytes.empty())
        throw std::runtime_error("the picture has no data; fetch the PDF again");
    return data;
}

// A colour's brightness, 0 to 255 times the number of its parts.
int Brightness(const std::string& colours, size_t index, size_t parts) {
    int sum = 0;
    for (size_t i = 0; i < parts; ++i)
        sum += static_cast<unsigned char>(colours[index * parts + i]);
    return parts == 4 ? -sum : sum; // ink
}

// Whether the colour of a sample of 1 is the darker one.
bool OneIsDark(QPDFObjectHandle space) {
    if (!space.isArray() || space.getArrayNItems() == 0)
        return false;
    QPDFObjectHandle kind = space.getArrayItem(0);
    if (kind.isNameAndEquals("/Separation") || kind.isNameAndEquals("/DeviceN")) // ink
        return true;
    if (!kind.isNameAndEquals("/Indexed") || space.getArrayNItems() < 4)
        return false;
    QPDFObjectHandle table = space.getArrayItem(3);
    std::string colours;
    if (table.isString()) {
        colours = table.getStringValue();
    } else if (table.isStream()) {
        Sink sink(kLeastData);
        table.pipeStreamData(&sink, 0, qpdf_dl_generalized, true, true);
        colours.assign(sink.Bytes.begin(), sink.Bytes.end());
    }
    const size_t parts = colours.size() >= 8 ? 4 : colours.size() / 2;
    QPDFObjectHandle base = space.getArrayItem(1);
    size_t wanted = parts;
    if (base.isNameAndEquals("/DeviceGray") || base.isNameAndEquals("/G"))
        wanted = 1;
    else if (base.isNameAndEquals("/DeviceRGB") || base.isNameAndEquals("/RGB"))
        wanted = 3;
    if (wanted == 0 || colours.size() < 2 * wanted)
        return false;
    return Brightness(colours, 1, wanted) < Brightness(colours, 0, wanted);
}

// Fax black is a sample of 0, which is black, unless these say otherwise.
bool IsInvertedPicture(QPDFObjectHandle dict, const FaxParameters& parameters) {
    bool inverted = parameters.BlackIs1;
    QPDFObjectHandle decode = dict.getKey("/Decode");
    double first = 0;
    double second = 1;
    if (decode.isArray() && decode.getArrayNItems() >= 2 && decode.getArrayItem(0).getValueAsNumber(first) &&
        decode.getArrayItem(1).getValueAsNumber(second))
        inverted ^= first > second;
    bool mask = false;
    dict.getKey("/ImageMask").getValueAsBool(mask);
    return inverted != (!mask && OneIsDark(dict.getKey("/ColorSpace")));
}

bool BeginsWithEol(const std::vector<unsigned char>& bytes) {
    unsigned zeros = 0;
    for (const unsigned char byte : bytes)
        for (unsigned bit = 8; bit-- != 0;) {
            if ((byte >> bit & 1) != 0)
                return zeros >= kEolZeros;
            ++zeros;
        }
    return false;
}

int FormatOf(const FaxData& data) {
    const FaxParameters& parameters = data.Parameters;
    if (parameters.K < 0) {
        if (parameters.ByteAlign)
            throw std::runtime_error(
                std::string("Group 4 rows on byte boundaries (EncodedByteAlign) cannot be "
                            "decoded") +
                kOddPicture);
        return FORMAT_FAX_G4;
    }
    // The ends of lines may be there whether EndOfLine says so or not.
    const bool eols = parameters.EndOfLine || BeginsWithEol(data.Bytes);
    if (parameters.K == 0)
        return parameters.ByteAlign && !eols ? FORMAT_FAX_G3_1D_NOEOL : FORMAT_FAX_G3_1D;
    if (!eols)
        throw std::runtime_error(
            std::string("two-dimensional Group 3 rows without line ends cannot be decoded") + kOddPicture);
    return FORMAT_FAX_G3_2D;
}

unsigned SizeOf(QPDFObjectHandle dict, const char* key) {
    double value = 0;
    if (!dict.getKey(key).getValueAsNumber(value) || value < 1 || value > INT_MAX)
        throw std::runtime_error(std::string("the picture has no sound ") + (key + 1) +
                                 "; the PDF is damaged");
    return static_cast<unsigned>(value);
}

void CheckSizes(unsigned width, unsigned height, const FaxData& data) {
    CheckPictureSize(width, static_cast<int>(height));
    const long long columns = data.Parameters.Columns;
    if (std::max<long long>(width, columns) > MAX_IMAGE_WIDTH)
        throw std::runtime_error("the picture is " + std::to_string(std::max<long long>(width, columns)) +
                                 " pixels wide; at most " + std::to_string(MAX_IMAGE_WIDTH) +
                                 " can be loaded; cut or shrink it");
    if (columns < 1)
        throw std::runtime_error("the picture has no sound Columns; the PDF is damaged");
    const uint64_t packed = (uint64_t{width} + 7) / 8 * height;
    if (packed > std::max(kPlausiblePacked, data.Bytes.size() * kPackedPerByte))
        throw std::runtime_error("a picture of " + std::to_string(width) + " x " + std::to_string(height) +
                                 " pixels cannot lie in " + std::to_string(data.Bytes.size()) +
                                 " bytes; the PDF is damaged or made to fill memory");
}

// Decodes the rows as they are coded, and cuts their bytes into the picture's rows.
standin::LoadResult LoadOtherColumns(const standin::Filter& filter, PdfImage& image,
                                     const standin::LoadOptions& options) {
    const _FILEINFOA& info = image.Image.FileInfo.Declared;
    const size_t codedBytes = (size_t{image.Data.Width} + 7) / 8;
    const size_t needed = (size_t{info.Width} + 7) / 8 * static_cast<unsigned>(info.Height);
    _LOADINFO coded = image.Image.LoadInfo;
    coded.Width = static_cast<int32_t>(image.Data.Width);
    coded.Height = static_cast<int32_t>((needed + codedBytes - 1) / codedBytes);
    image.Data.Height = static_cast<unsigned>(coded.Height);
    standin::LoadOptions whole = options;
    whole.DiscardRows = false;
    MemoryShare memory; // of the coded rows, and of those rows beside them as bytes
    ReservePicture(memory, image.Data.Width, coded.Height);
    standin::LoadResult rows =
        standin::LoadBlocks(filter, standin::DescribeStream(coded), image.Data, false, whole);
    if (rows.Status != SUCCESS)
        return rows;

    standin::Blocks packed;
    packed.Width = info.Width;
    packed.Height = static_cast<unsigned>(info.Height);
    packed.Offsets = {0};
    packed.ByteCounts = {static_cast<uint32_t>(needed)};
    packed.Bytes.resize(codedBytes * static_cast<unsigned>(coded.Height));
    for (size_t y = 0; y < static_cast<unsigned>(coded.Height); ++y)
        std::memcpy(packed.Bytes.data() + y * codedBytes, standin::BitmapRow(*rows.Bitmap, y), codedBytes);
    rows.Bitmap.reset();
    standin::Description picture = image.Image;
    picture.LoadInfo.Format = 0;
    standin::LoadResult loaded = standin::LoadBlocks(filter, picture, packed, true, options);
    loaded.LoadInfo.Format = coded.Format;
    if (loaded.DataStatus == 0)
        loaded.DataStatus = rows.DataStatus;
    return loaded;
}

std::vector<BlockFaults> InspectPicture(const standin::Filter& filter, PdfImage& image) {
    const CodedStream stream{image.Data.Bytes.data(),
                             image.Data.Bytes.size(),
                             image.Image.LoadInfo.Format,
                             image.Data.Width,
                             std::max(image.Lines, image.Data.Height),
                             false};
    std::vector<BlockFaults> faults(1);
    InspectLines(filter, stream, faults.front().Lines);
    KeepRowsOfImage(faults.front().Lines, image.Data.Height);
    if (faults.front().Lines.empty())
        faults.clear();
    return faults;
}

} // namespace

PdfImage ReadPdfImage(PdfFile& file, unsigned number) {
    PdfImage image;
    WithinMemory(file, [&] {
        const PdfPicture& picture = file.Pictures.at(number - 1);
        QPDFObjectHandle stream = picture.Stream;
        QPDFObjectHandle dict = stream.getDict();
        const unsigned width = SizeOf(dict, "/Width");
        const unsigned height = SizeOf(dict, "/Height");
        long long bits = 1;
        if (dict.getKey("/BitsPerComponent").getValueAsInt(bits) && bits != 1)
            throw std::runtime_error("the picture is not black and white, though its data is fax");
        FaxData data = ReadFaxData(stream, file.Size);
        CheckSizes(width, height, data);
        if (!data.Whole)
            image.Damage = "the filters in front of the fax data find it damaged";

        _LOADINFO info{};
        info.Format = FormatOf(data);
        info.Width = static_cast<int32_t>(width);
        info.Height = static_cast<int32_t>(height);
        info.BitsPerPixel = 1;
        info.XResolution = picture.XResolution;
        info.YResolution = picture.YResolution;
        info.Flags = OrientationFlag(picture.Orientation);
        if (IsInvertedPicture(dict, data.Parameters))
            info.Flags |= LOADINFO_INVERTED;
        image.Image = standin::DescribeStream(info);
        image.Data.Width = static_cast<unsigned>(data.Parameters.Columns);
        image.Data.Height = height;
        image.Data.Offsets = {0};
        image.Data.ByteCounts = {static_cast<uint32_t>(data.Bytes.size())};
        image.Data.Bytes = std::move(data.Bytes);
        image.Lines = static_cast<unsigned>(std::clamp<long long>(data.Parameters.Rows, height, INT_MAX));
    });
    // The data leaves qpdf's account with the image.
    file.Held.Forget(image.Data.Bytes.capacity());
    image.DataMemory.Add(image.Data.Bytes.capacity());
    return image;
}

bool HasOtherColumns(const PdfImage& image) {
    return image.Data.Width != image.Image.FileInfo.Declared.Width;
}

LoadedBlocks LoadPdfImage(const standin::Filter& filter, PdfImage image, const standin::LoadOptions& options,
                          bool findFaults) {
    LoadedBlocks result;
    result.Loaded = HasOtherColumns(image)
                        ? LoadOtherColumns(filter, image, options)
                        : standin::LoadBlocks(filter, image.Image, image.Data, false, options);
    result.Damage = image.Damage;
    if (result.Damage.empty() && result.Loaded.Status == SUCCESS && result.Loaded.DataStatus != 0)
        result.Damage = standin::StatusText(result.Loaded.DataStatus);
    if (findFaults)
        result.Faults = InspectPicture(filter, image);
    result.Data = std::move(image.Data);
    result.DataMemory = std::move(image.DataMemory);
    return result;
}

} // namespace kfax
