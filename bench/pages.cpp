#include "bench/pages.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <random>
#include <stdexcept>
#include <string_view>

namespace bench {
namespace {

constexpr const char* kFont = "/usr/share/fonts/truetype/dejavu/DejaVuSerif.ttf";

constexpr std::string_view kProse =
    "The archive holds the correspondence of the harbour office from the spring of 1987 onwards. Every sheet "
    "was sent over an ordinary telephone line, one page a minute, and kept as it arrived: the rules of the "
    "forms, the signatures, the stamps, the dust on the glass. Invoices (4,210 of them), bills of lading, "
    "weather reports and a few drawings make up most of it; the rest is what people write to one another "
    "when they are in a hurry. ";

void SetBlack(Page& page, int x, int y) {
    if (x >= 0 && y >= 0 && x < static_cast<int>(page.width) && y < static_cast<int>(page.height))
        page.Row(static_cast<unsigned>(y))[x / 8] |= static_cast<uint8_t>(0x80 >> (x % 8));
}

// Sets lines of prose in the rectangle from left and top on. size in pixels.
void DrawText(Page& page, int left, int top, int right, int bottom, unsigned size) {
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    if (FT_Init_FreeType(&library) != 0)
        throw std::runtime_error("FreeType does not start");
    const std::unique_ptr<FT_LibraryRec_, void (*)(FT_Library)> owner(
        library, [](FT_Library l) { FT_Done_FreeType(l); });
    if (FT_New_Face(library, kFont, 0, &face) != 0)
        throw std::runtime_error(std::string("cannot read the font ") + kFont);
    FT_Set_Pixel_Sizes(face, 0, size);

    int x = left;
    size_t next = 0;
    for (int baseline = top + static_cast<int>(size); baseline < bottom;) {
        const char c = kProse[next++ % kProse.size()];
        if (FT_Load_Char(face, static_cast<FT_ULong>(c), FT_LOAD_RENDER | FT_LOAD_TARGET_MONO) != 0)
            continue;
        const FT_GlyphSlotRec* const glyph = face->glyph;
        for (unsigned row = 0; row < glyph->bitmap.rows; ++row)
            for (unsigned column = 0; column < glyph->bitmap.width; ++column)
                if (glyph->bitmap.buffer[static_cast<int>(row) * glyph->bitmap.pitch +
                                         static_cast<int>(column / 8)] >>
                        (7 - column % 8) &
                    1)
                    SetBlack(page, x + glyph->bitmap_left + static_cast<int>(column),
                             baseline - glyph->bitmap_top + static_cast<int>(row));
        x += static_cast<int>(glyph->advance.x >> 6);
        if (x > right) {
            x = left;
            baseline += static_cast<int>(size * 3 / 2);
            if (next % 7 == 0) // a paragraph ends
                baseline += static_cast<int>(size);
        }
    }
}

void DrawTextPage(Page& page) {
    const int w = static_cast<int>(page.width);
    const int h = static_cast<int>(page.height);
    DrawText(page, w / 10, h / 14, w * 9 / 10, h * 13 / 14, page.width / 60);
}

void DrawLineArt(Page& page) {
    const double w = page.width;
    const double h = page.height;
    const int pen = static_cast<int>(page.width / 850) + 1;
    const auto stroke = [&](double x, double y) {
        for (int dy = 0; dy < pen; ++dy)
            for (int dx = 0; dx < pen; ++dx)
                SetBlack(page, static_cast<int>(x) + dx, static_cast<int>(y) + dy);
    };
    for (int circle = 1; circle <= 9; ++circle) {
        const double radius = w * circle / 22;
        const int steps = static_cast<int>(radius * 7);
        for (int i = 0; i < steps; ++i) {
            const double angle = 2 * std::numbers::pi * i / steps;
            stroke(w / 2 + radius * std::cos(angle), h / 2 + radius * std::sin(angle));
        }
    }
    for (int line = 0; line <= 24; ++line)
        for (unsigned i = 0; i < 2 * page.height; ++i) {
            const double t = i / (2 * h);
            stroke(w * line / 24, h * t);
            stroke(w * t, h * (line / 24.0) * (1 - t));
        }
}

// A grey picture of soft shapes with fine grain, 0 black to 1 white.
double Brightness(double x, double y) {
    const double shapes = std::sin(x * 9 + std::sin(y * 7) * 2) * std::cos(y * 11 - x * 3);
    const double shade = 0.55 + 0.3 * shapes + 0.15 * std::sin(x * 2.1 + y * 1.7);
    return std::clamp(shade, 0.02, 0.98);
}

void DrawOrderedDither(Page& page) {
    static constexpr int kBayer[8][8] = {{0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26},
                                         {12, 44, 4, 36, 14, 46, 6, 38}, {60, 28, 52, 20, 62, 30, 54, 22},
                                         {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
                                         {15, 47, 7, 39, 13, 45, 5, 37}, {63, 31, 55, 23, 61, 29, 53, 21}};
    for (unsigned y = 0; y < page.height; ++y)
        for (unsigned x = 0; x < page.width; ++x)
            if (Brightness(double(x) / page.width, double(y) / page.width) <
                (kBayer[y % 8][x % 8] + 0.5) / 64)
                SetBlack(page, static_cast<int>(x), static_cast<int>(y));
}

void DrawErrorDiffusion(Page& page) {
    std::vector<double> current(page.width + 2);
    std::vector<double> next(page.width + 2);
    for (unsigned y = 0; y < page.height; ++y) {
        std::fill(next.begin(), next.end(), 0.0);
        for (unsigned x = 0; x < page.width; ++x) {
            const double wanted = Brightness(double(x) / page.width, double(y) / page.width) + current[x + 1];
            const bool black = wanted < 0.5;
            if (black)
                SetBlack(page, static_cast<int>(x), static_cast<int>(y));
            const double error = wanted - (black ? 0 : 1);
            current[x + 2] += error * 7 / 16;
            next[x] += error * 3 / 16;
            next[x + 1] += error * 5 / 16;
            next[x + 2] += error * 1 / 16;
        }
        std::swap(current, next);
    }
}

// A scan of a text page: specks, and dust that hangs together.
void DrawNoisy(Page& page) {
    DrawTextPage(page);
    std::mt19937 random(20);
    const size_t pixels = size_t{page.width} * page.height;
    for (size_t i = 0; i < pixels / 400; ++i) {
        const int x = static_cast<int>(random() % page.width);
        const int y = static_cast<int>(random() % page.height);
        const int size = random() % 6 == 0 ? 2 : 1;
        for (int dy = 0; dy < size; ++dy)
            for (int dx = 0; dx < size; ++dx)
                SetBlack(page, x + dx, y + dy);
    }
}

void DrawNearlyBlank(Page& page) {
    const int w = static_cast<int>(page.width);
    const int h = static_cast<int>(page.height);
    DrawText(page, w / 10, h / 20, w * 6 / 10, h / 20 + w / 24, page.width / 60);
    DrawText(page, w * 7 / 10, h * 9 / 10, w * 9 / 10, h * 9 / 10 + w / 30, page.width / 60);
}

} // namespace

const char* PageName(PageKind kind) {
    switch (kind) {
    case PageKind::Text:
        return "text";
    case PageKind::LineArt:
        return "line-art";
    case PageKind::OrderedDither:
        return "ordered-dither";
    case PageKind::ErrorDiffusion:
        return "error-diffusion";
    case PageKind::Noisy:
        return "noisy";
    case PageKind::NearlyBlank:
        return "nearly-blank";
    case PageKind::AllWhite:
        break;
    }
    return "all-white";
}

std::string PageTitle(PageKind kind, PageSize size) {
    return std::string(PageName(kind)) + "/" + std::to_string(size.width) + "x" + std::to_string(size.height);
}

Page MakePage(PageKind kind, PageSize size) {
    Page page{size.width, size.height, {}};
    page.rows.resize(size_t{page.RowBytes()} * page.height);
    switch (kind) {
    case PageKind::Text:
        DrawTextPage(page);
        break;
    case PageKind::LineArt:
        DrawLineArt(page);
        break;
    case PageKind::OrderedDither:
        DrawOrderedDither(page);
        break;
    case PageKind::ErrorDiffusion:
        DrawErrorDiffusion(page);
        break;
    case PageKind::Noisy:
        DrawNoisy(page);
        break;
    case PageKind::NearlyBlank:
        DrawNearlyBlank(page);
        break;
    case PageKind::AllWhite:
        break;
    }
    return page;
}

} // namespace bench
