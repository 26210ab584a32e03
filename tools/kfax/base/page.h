// A page between its input and its output.
#pragma once

#include "host/standin/standin.h"
#include "tools/kfax/base/memory_budget.h"

#include <string>

namespace kfax {

// Which pages may come as the data of their file, instead of as a picture.
enum class CodedData {
    None,
    OneStrip,  // those whose data is one piece
    AnyStrips, // those in strips
};

// A page's data as its file has it, strips of Group 4, for an output that can take it as it is.
struct CodedPage {
    unsigned Width = 0, Height = 0;
    bool BlackIsZero = false;             // white is coded where the picture is black
    int XResolution = 0, YResolution = 0; // dots per inch; 0: not known
    int Orientation = 1;                  // as in TIFF
    // The first bit is a byte's most significant. Empty: there is no such data.
    standin::Blocks Strips;
    MemoryShare Memory;

    bool IsThere() const { return !Strips.Bytes.empty(); }
};

// A loaded page, and what is still to be done with its picture.
struct Page {
    MemoryShare Memory;        // what the picture and its output take
    standin::BitmapPtr Bitmap; // null where there is Coded
    CodedPage Coded;
    bool Mirror = false;
    bool Invert = false;
    std::string Damage;    // empty: none
    unsigned Repaired = 0; // lines that were replaced by the line above
};

} // namespace kfax
