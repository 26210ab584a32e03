// Files of numbered pages, TIFF and PDF, for those to whom it makes no difference which.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/memory_budget.h"
#include "tools/kfax/base/page.h"
#include "tools/kfax/read/tiff_input.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kfax {

struct PdfFile;
struct ClosePdf {
    void operator()(PdfFile* file) const;
};

// One of them is there.
struct PageFile {
    std::unique_ptr<TiffFile> Tiff;
    std::unique_ptr<PdfFile, ClosePdf> Pdf; // each of its fax pictures is a page
};

// Whether the file is one, by its first bytes; false where it cannot be read.
bool IsPageFile(const std::string& name);

// Opens such a file. password: of a PDF. Throws std::runtime_error with the reason.
PageFile OpenPageFile(const std::string& name, const std::string& password);

unsigned CountPages(PageFile& file);

// Says what a person should know of the file as a whole.
void TellAbout(PageFile& file);

// The first and the last page wanted, from 1, of all pages; all unless one is asked for. Throws
// std::runtime_error where there is no such page.
struct PageNumbers {
    unsigned First, Last;
};
PageNumbers PageRange(std::optional<int64_t> asked, unsigned pages);

// Opens a file and calls examine for each wanted page, from 1, of so many. What examine throws goes to failed
// as the reason, and the next page is looked at; only a shortage of memory ends the walk.
void ForEachPage(const std::string& name, const std::string& password, std::optional<int64_t> asked,
                 const std::function<void(PageFile& file, unsigned number, unsigned pages)>& examine,
                 const std::function<void(unsigned number, const std::string& reason)>& failed);

// A page after its load.
struct StoredPage {
    MemoryShare Memory; // of the picture, where one was loaded
    standin::Description Image;
    standin::LoadResult Loaded; // its Status is SUCCESS
    std::string Damage;         // of the page's bytes; empty: none
    std::vector<BlockFaults> Faults;
    bool LinesAreRows = true; // the lines that faults count are the picture's rows
    CodedPage Coded;
    const char* Container = ""; // "TIFF"
    std::string Layout;         // "strips of 64 rows"
};

// What is wanted beside the picture.
struct PageExtras {
    bool Faults = false;               // of its strips or tiles, line by line
    CodedData Coded = CodedData::None; // its data instead, where that is good Group 4
};

// Loads a page, from 1. Throws std::runtime_error with the reason.
StoredPage LoadStoredPage(const standin::Filter& filter, PageFile& file, unsigned number,
                          const standin::LoadOptions& options, const PageExtras& extras);

} // namespace kfax
