// Writing PDF files: a page for each picture, as large as the picture is on paper. qpdf writes the file.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/page.h"
#include "tools/kfax/write/output_file.h"

#include <memory>
#include <string>

namespace kfax {

// How a bitmap is to be coded for a page: as one piece.
standin::Blocks PdfBlock(const _BITMAPHANDLE& bitmap);

// The same pages give the same bytes: the document has no date but that of SOURCE_DATE_EPOCH, where it is
// set.
struct PdfOutput {
    PdfOutput();
    ~PdfOutput();
    PdfOutput(const PdfOutput&) = delete;
    PdfOutput& operator=(const PdfOutput&) = delete;

    // Appends a page of one strip of Group 4. Its data waits in a temporary file. Throws std::runtime_error.
    void Append(const CodedPage& page);
    // Writes the file. Throws std::runtime_error with the reason.
    void Write(const std::string& name);

private:
    struct Document;
    std::unique_ptr<Document> document_;
};

} // namespace kfax
