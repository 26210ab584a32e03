// Files of numbered pages, TIFF and PDF, for those to whom it makes no difference which.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/pdf_file.h"
#include "tools/kfax/tiff_input.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kfax {

// One of them is there.
struct PageFile {
    std::unique_ptr<TiffFile> Tiff;
    std::unique_ptr<PdfFile> Pdf; // each of its fax pictures is a page
};

// Whether the file is one, by its first bytes; false where it cannot be read.
bool IsPageFile(const std::string& name);

// Opens such a file. password: of a PDF. Throws std::runtime_error with the reason.
PageFile OpenPageFile(const std::string& name, const std::string& password);

unsigned CountPages(PageFile& file);

// Says what a person should know of the file as a whole.
void TellAbout(PageFile& file);

// A page after its load.
struct StoredPage {
    standin::Description Image;
    standin::LoadResult Loaded; // its Status is SUCCESS
    std::string Damage;         // of the page's bytes; empty: none
    std::vector<BlockFaults> Faults;
    const char* Container = ""; // "TIFF"
    std::string Layout;         // "strips of 64 rows"
};

// Loads a page, from 1. With findFaults its strips or tiles are looked at line by line as well. Throws
// std::runtime_error with the reason.
StoredPage LoadStoredPage(const standin::Filter& filter, PageFile& file, unsigned number,
                          const standin::LoadOptions& options, bool findFaults);

} // namespace kfax
