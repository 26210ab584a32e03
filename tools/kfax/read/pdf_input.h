// The fax pictures of a PDF file as pages: qpdf reads the stored bytes, the filter decodes them.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/read/pdf_file.h"
#include "tools/kfax/read/tiff_input.h"

#include <string>
#include <vector>

namespace kfax {

// A picture as it is stored.
struct PdfImage {
    standin::Description Image; // of the picture; Format: of the coded data
    standin::Blocks Data;       // one block, the picture's coded rows
    unsigned Lines = 0;         // that the data says it has, at least the picture's
    std::string Damage;         // of what is around the coded data; empty: none
    MemoryShare DataMemory;
};

// Reads a picture, from 1. Throws std::runtime_error with the reason.
PdfImage ReadPdfImage(PdfFile& file, unsigned number);

// Whether the rows are coded with another width than the picture's.
bool HasOtherColumns(const PdfImage& image);

// As LoadTiffPage; the data is that of image.
LoadedBlocks LoadPdfImage(const standin::Filter& filter, PdfImage image, const standin::LoadOptions& options,
                          bool findFaults);

} // namespace kfax
