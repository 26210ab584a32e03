// The pictures that the pages of a PDF file draw.
#pragma once

#include "tools/kfax/read/pdf_file.h"

namespace kfax {

// Fills the file's Pictures, OtherPictures and DocumentPages. Throws std::runtime_error, or what qpdf throws.
void FindPictures(PdfFile& file);

} // namespace kfax
