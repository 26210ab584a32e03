// Opening PDF files.
#include "tools/kfax/read/pdf_file.h"

#include "tools/kfax/base/errors.h"
#include "tools/kfax/base/messages.h"
#include "tools/kfax/read/input.h"
#include "tools/kfax/read/pdf_pictures.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <qpdf/QPDFExc.hh>
#include <qpdf/QPDFSystemError.hh>
#include <string_view>

namespace kfax {

namespace {

constexpr size_t kLeastMemory = size_t{96} << 20;
constexpr size_t kMemoryPerByte = 4;
constexpr size_t kStartBytes = 1024; // readers look that far for the mark

std::string ReasonOf(const QPDFExc& error) {
    const std::string& detail = error.getMessageDetail();
    switch (error.getErrorCode()) {
    case qpdf_e_password:
        return "the PDF is encrypted; give its password (--password)";
    case qpdf_e_unsupported:
        return detail + "; save the PDF again without it";
    default:
        return "damaged PDF: " + detail + "; fetch it again";
    }
}

} // namespace

bool IsPdf(const std::string& name) {
    const FileHandle file = OpenInput(name);
    if (!file)
        return false;
    char start[kStartBytes];
    const std::string_view text(start, std::fread(start, 1, sizeof start, file.get()));
    return text.find("%PDF-") != std::string_view::npos;
}

void WithinMemory(PdfFile& file, const std::function<void()>& action) {
    const auto refuse = [&] {
        if (MemoryLimit::Refusal() == MemoryRefusal::WholeBudget)
            throw MemoryShortage("reading the PDF takes more memory than kfax has left of " +
                                 std::to_string(MemoryBudget() >> 20) + " MB (--memory)");
        throw std::runtime_error("reading the PDF takes more than " + std::to_string(file.Held.Most >> 20) +
                                 " MB of memory, too much for its size; it is damaged or made to do so");
    };
    const MemoryLimit limit(file.Held);
    try {
        action();
    } catch (const std::bad_alloc&) {
        if (MemoryLimit::Refusal() == MemoryRefusal::None)
            throw;
        refuse();
    } catch (const QPDFExc& error) {
        if (MemoryLimit::Refusal() != MemoryRefusal::None)
            refuse();
        throw std::runtime_error(ReasonOf(error));
    } catch (const QPDFSystemError& error) {
        throw std::runtime_error(SystemReason(error.getErrno()));
    }
    if (MemoryLimit::Refusal() != MemoryRefusal::None) // qpdf takes it for a damaged stream and goes on
        refuse();
}

PdfFile::PdfFile(const std::string& name, const std::string& password)
    : Name(name), Size(CheckInput(name)), Held(kLeastMemory + kMemoryPerByte * Size) {
    Document.setSuppressWarnings(true);
    WithinMemory(*this, [&] {
        Document.processFile(name.c_str(), password.c_str());
        FindPictures(*this);
    });
    if (!Pictures.empty())
        return;
    if (OtherPictures == 0)
        throw std::runtime_error("there are no pictures on the pages of the PDF; render it (pdftoppm -mono)");
    throw std::runtime_error(
        "the pictures of the PDF are no fax (CCITTFaxDecode); render it (pdftoppm -mono), "
        "or take them out (pdfimages)");
}

void TellAboutPdf(PdfFile& file) {
    std::string mended;
    WithinMemory(file, [&] {
        const std::vector<QPDFExc> warnings = file.Document.getWarnings();
        if (!warnings.empty())
            mended = warnings.front().getMessageDetail();
        if (warnings.size() > 1)
            mended += ", and " + std::to_string(warnings.size() - 1) + " more";
    });
    if (!mended.empty())
        Note(file.Name, "warning: the PDF is damaged and was mended: " + mended);
    if (file.OtherPictures != 0)
        Note(file.Name, std::to_string(file.OtherPictures) +
                            (file.OtherPictures == 1 ? " picture is" : " pictures are") +
                            " no fax and skipped; pdfimages takes out such ones");
}

} // namespace kfax
