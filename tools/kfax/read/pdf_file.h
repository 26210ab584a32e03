// An open PDF file and its fax pictures. qpdf reads the file, mends it where it can, and decrypts it.
#pragma once

#include "tools/kfax/read/memory_limit.h"

#include <cstdint>
#include <functional>
#include <qpdf/QPDF.hh>
#include <string>
#include <vector>

namespace kfax {

// Whether the first bytes say so; false where the file cannot be read.
bool IsPdf(const std::string& name);

// A picture with CCITTFaxDecode as it is drawn on a page.
struct PdfPicture {
    QPDFObjectHandle Stream;
    unsigned Page = 0; // of the PDF, from 1
    // Of the picture as it is stored; dots per inch, 0: not known.
    int XResolution = 0;
    int YResolution = 0;
    int Orientation = 1; // as in TIFF
};

struct PdfFile {
    // Throws std::runtime_error with the reason.
    PdfFile(const std::string& name, const std::string& password);

    std::string Name;
    uint64_t Size; // of the file
    // What qpdf may hold in memory depends on the file's size, whatever the file says.
    HeldMemory Held;
    QPDF Document;
    // In the order in which the pages draw them; one that a page draws several times is there once.
    std::vector<PdfPicture> Pictures;
    unsigned OtherPictures = 0; // that are no fax
    unsigned DocumentPages = 0;
};

// Runs action, which uses qpdf, within the file's memory. Throws std::runtime_error with the reason for what
// qpdf throws.
void WithinMemory(PdfFile& file, const std::function<void()>& action);

// Says what qpdf mended, and that there are other pictures.
void TellAboutPdf(PdfFile& file);

} // namespace kfax
