// Finding pictures by following what the pages draw: what a page's resources list need not be on it, where
// all pages share them, and only the place of a picture on its page tells resolution and orientation.
#include "tools/kfax/read/pdf_pictures.h"

#include <array>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <qpdf/QPDFMatrix.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>
#include <set>
#include <stdexcept>
#include <utility>

namespace kfax {

namespace {

constexpr double kPointsPerInch = 72;
constexpr unsigned kMostNesting = 12; // of forms in forms
constexpr unsigned kMostPictures = 100000;
constexpr size_t kMostOperands = 64;
constexpr size_t kMostSaved = 512; // graphics states
// Forms can draw others many times, so a small file can stand for any amount of work.
constexpr uint64_t kLeastWork = uint64_t{32} << 20;
constexpr uint64_t kWorkPerByte = 16; // of the file
constexpr uint64_t kFormWork = 4096;

bool IsFax(QPDFObjectHandle filter) {
    return filter.isName() && (filter.getName() == "/CCITTFaxDecode" || filter.getName() == "/CCF");
}

bool IsFaxPicture(QPDFObjectHandle stream) {
    QPDFObjectHandle filter = stream.getDict().getKey("/Filter");
    if (!filter.isArray())
        return IsFax(filter);
    for (int i = 0; i < filter.getArrayNItems(); ++i)
        if (IsFax(filter.getArrayItem(i)))
            return true;
    return false;
}

int DotsPerInch(double pixels, double x, double y) {
    const double points = std::hypot(x, y);
    const double dots = points > 0 ? std::round(pixels * kPointsPerInch / points) : 0;
    return dots >= 1 && dots < INT_MAX ? static_cast<int>(dots) : 0;
}

// matrix takes the unit square, in which the picture stands upright, to the page.
int OrientationOf(const QPDFMatrix& matrix) {
    const bool turned = std::abs(matrix.b) > std::abs(matrix.a);
    if (!turned) {
        if (matrix.d >= 0)
            return matrix.a >= 0 ? 1 : 2;
        return matrix.a >= 0 ? 4 : 3;
    }
    if (matrix.c < 0)
        return matrix.b < 0 ? 5 : 8;
    return matrix.b < 0 ? 6 : 7;
}

// The short names that inline pictures may use.
std::string LongName(const std::string& name) {
    static constexpr std::pair<const char*, const char*> kNames[] = {{"/BPC", "/BitsPerComponent"},
                                                                     {"/CS", "/ColorSpace"},
                                                                     {"/D", "/Decode"},
                                                                     {"/DP", "/DecodeParms"},
                                                                     {"/F", "/Filter"},
                                                                     {"/H", "/Height"},
                                                                     {"/IM", "/ImageMask"},
                                                                     {"/W", "/Width"},
                                                                     {"/A85", "/ASCII85Decode"},
                                                                     {"/AHx", "/ASCIIHexDecode"},
                                                                     {"/CCF", "/CCITTFaxDecode"},
                                                                     {"/Fl", "/FlateDecode"},
                                                                     {"/LZW", "/LZWDecode"},
                                                                     {"/RL", "/RunLengthDecode"},
                                                                     {"/G", "/DeviceGray"},
                                                                     {"/I", "/Indexed"}};
    for (const auto& [brief, full] : kNames)
        if (name == brief)
            return full;
    return name;
}

QPDFObjectHandle WithLongNames(QPDFObjectHandle value) {
    if (value.isName())
        return QPDFObjectHandle::newName(LongName(value.getName()));
    if (!value.isArray())
        return value;
    QPDFObjectHandle array = QPDFObjectHandle::newArray();
    for (int i = 0; i < value.getArrayNItems(); ++i) {
        QPDFObjectHandle item = value.getArrayItem(i);
        array.appendItem(item.isName() ? QPDFObjectHandle::newName(LongName(item.getName())) : item);
    }
    return array;
}

// What one walk over the pages shares.
struct Walk {
    PdfFile& File;
    uint64_t Work = 0;
    uint64_t MostWork = 0;
    unsigned Page = 0;
    std::set<QPDFObjGen> Drawn{}; // on the page

    void Spend(uint64_t work) {
        Work += work;
        if (Work > MostWork)
            throw std::runtime_error(
                "the pages of the PDF draw too much for its size; it is damaged or made to "
                "take long");
    }
    bool IsFirstDrawing(const QPDFObjectHandle& stream) {
        return !stream.isIndirect() || Drawn.insert(stream.getObjGen()).second;
    }
    void Add(QPDFObjectHandle stream, const QPDFMatrix& matrix) {
        QPDFObjectHandle dict = stream.getDict();
        if (!IsFaxPicture(stream)) {
            ++File.OtherPictures;
            return;
        }
        if (File.Pictures.size() >= kMostPictures)
            throw std::runtime_error("the PDF has more than " + std::to_string(kMostPictures) +
                                     " pictures; cut it into several (qpdf --split-pages)");
        PdfPicture picture;
        picture.Stream = stream;
        picture.Page = Page;
        QPDFObjectHandle width = dict.getKey("/Width");
        QPDFObjectHandle height = dict.getKey("/Height");
        if (width.isNumber() && height.isNumber()) {
            picture.XResolution = DotsPerInch(width.getNumericValue(), matrix.a, matrix.b);
            picture.YResolution = DotsPerInch(height.getNumericValue(), matrix.c, matrix.d);
        }
        picture.Orientation = OrientationOf(matrix);
        File.Pictures.push_back(picture);
    }
    void AddWithMask(QPDFObjectHandle stream, const QPDFMatrix& matrix) {
        if (!IsFirstDrawing(stream))
            return;
        Add(stream, matrix);
        for (const char* key : {"/Mask", "/SMask"}) {
            QPDFObjectHandle mask = stream.getDict().getKey(key);
            if (mask.isStream() && IsFaxPicture(mask) && IsFirstDrawing(mask))
                Add(mask, matrix);
        }
    }
};

// One content stream, a page's or a form's.
class Content : public QPDFObjectHandle::ParserCallbacks {
public:
    Content(Walk& walk, const QPDFObjectHandle& resources, const QPDFMatrix& matrix, unsigned nesting)
        : walk_(walk), resources_(resources), matrix_(matrix), nesting_(nesting) {}

    void contentSize(size_t bytes) override { walk_.Spend(bytes); }
    void handleEOF() override {}
    void handleObject(QPDFObjectHandle object) override {
        if (object.isInlineImage()) {
            AddInline(object.getInlineImageValue());
        } else if (!object.isOperator()) {
            if (operands_.size() < kMostOperands)
                operands_.push_back(object);
        } else {
            const std::string name = object.getOperatorValue();
            if (name != "ID") // the picture's bytes follow, and belong to its dictionary
                Execute(name);
        }
    }

private:
    void Execute(const std::string& name) {
        if (name == "q") {
            if (saved_.size() < kMostSaved)
                saved_.push_back(matrix_);
        } else if (name == "Q" && !saved_.empty()) {
            matrix_ = saved_.back();
            saved_.pop_back();
        } else if (name == "cm") {
            if (const auto matrix = TakeMatrix())
                matrix_.concat(*matrix);
        } else if (name == "Do" && !operands_.empty() && operands_.back().isName()) {
            Draw(operands_.back().getName());
        }
        operands_.clear();
    }

    std::optional<QPDFMatrix> TakeMatrix() {
        constexpr size_t kCount = 6;
        std::array<double, kCount> values{};
        for (size_t i = 0; i < kCount; ++i)
            if (operands_.size() != kCount || !operands_[i].getValueAsNumber(values[i]))
                return std::nullopt;
        return QPDFMatrix(values[0], values[1], values[2], values[3], values[4], values[5]);
    }

    void Draw(const std::string& name) {
        QPDFObjectHandle objects =
            resources_.isDictionary() ? resources_.getKey("/XObject") : QPDFObjectHandle::newNull();
        QPDFObjectHandle object = objects.isDictionary() ? objects.getKey(name) : objects;
        if (!object.isStream())
            return;
        QPDFObjectHandle dict = object.getDict();
        QPDFObjectHandle kind = dict.getKey("/Subtype");
        if (kind.isNameAndEquals("/Image")) {
            walk_.AddWithMask(object, matrix_);
        } else if (kind.isNameAndEquals("/Form") && nesting_ < kMostNesting) {
            walk_.Spend(kFormWork);
            QPDFMatrix matrix = matrix_;
            if (dict.getKey("/Matrix").isMatrix())
                matrix.concat(QPDFMatrix(dict.getKey("/Matrix").getArrayAsMatrix()));
            QPDFObjectHandle resources = dict.getKey("/Resources");
            Content form(walk_, resources.isDictionary() ? resources : resources_, matrix, nesting_ + 1);
            object.parseAsContents(&form);
        }
    }

    void AddInline(const std::string& bytes) {
        QPDFObjectHandle stream = QPDFObjectHandle::newStream(&walk_.File.Document, bytes);
        for (size_t i = 0; i + 1 < operands_.size(); i += 2)
            if (operands_[i].isName())
                stream.getDict().replaceKey(LongName(operands_[i].getName()),
                                            WithLongNames(operands_[i + 1]));
        walk_.Add(stream, matrix_);
        operands_.clear();
    }

    Walk& walk_;
    QPDFObjectHandle resources_;
    QPDFMatrix matrix_;
    unsigned nesting_;
    std::vector<QPDFMatrix> saved_;
    std::vector<QPDFObjectHandle> operands_;
};

// What turns the page's coordinates into those of a person who looks at it.
QPDFMatrix ViewOf(QPDFPageObjectHelper& page) {
    QPDFMatrix view;
    QPDFObjectHandle unit = page.getObjectHandle().getKey("/UserUnit");
    double scale = 1;
    if (unit.isNumber() && unit.getNumericValue() > 0)
        scale = unit.getNumericValue();
    view.scale(scale, scale);
    QPDFObjectHandle rotation = page.getAttribute("/Rotate", false);
    if (!rotation.isInteger())
        return view;
    // Clockwise.
    switch ((rotation.getIntValue() % 360 + 360) % 360) {
    case 90:
        view.concat(QPDFMatrix(0, -1, 1, 0, 0, 0));
        break;
    case 180:
        view.concat(QPDFMatrix(-1, 0, 0, -1, 0, 0));
        break;
    case 270:
        view.concat(QPDFMatrix(0, 1, -1, 0, 0, 0));
        break;
    default:
        break;
    }
    return view;
}

} // namespace

void FindPictures(PdfFile& file) {
    Walk walk{file};
    walk.MostWork = kLeastWork + kWorkPerByte * file.Size;
    for (QPDFPageObjectHelper& page : QPDFPageDocumentHelper(file.Document).getAllPages()) {
        ++file.DocumentPages;
        walk.Page = file.DocumentPages;
        walk.Drawn.clear();
        Content content(walk, page.getAttribute("/Resources", false), ViewOf(page), 0);
        page.parseContents(&content);
    }
}

} // namespace kfax
