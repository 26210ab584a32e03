// UTF-8 (RFC 3629).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kfax {

// The bytes of the character that text, which is not empty, begins with, and its code point; 0 where it
// begins with none.
inline size_t Utf8Character(std::string_view text, uint32_t& point) {
    static constexpr struct {
        uint32_t Mask, Lead, Least;
    } kForms[] = {{0x80, 0, 0}, {0xE0, 0xC0, 0x80}, {0xF0, 0xE0, 0x800}, {0xF8, 0xF0, 0x10000}};
    const uint32_t lead = static_cast<unsigned char>(text[0]);
    for (size_t length = 1; length <= 4; ++length) {
        const auto& form = kForms[length - 1];
        if ((lead & form.Mask) != form.Lead)
            continue;
        point = lead & ~form.Mask;
        for (size_t i = 1; i < length; ++i) {
            const uint32_t next = i < text.size() ? static_cast<unsigned char>(text[i]) : 0;
            if ((next & 0xC0) != 0x80)
                return 0;
            point = point << 6 | (next & 0x3F);
        }
        const bool isSurrogate = point >= 0xD800 && point <= 0xDFFF;
        return point < form.Least || point > 0x10FFFF || isSurrogate ? 0 : length;
    }
    return 0;
}

} // namespace kfax
