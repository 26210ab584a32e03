// Carrying pages from inputs to the output, one in memory at a time.
#include "tools/kfax/convert.h"

#include <cstdio>
#include <utility>

namespace kfax {

namespace {

// OUT.png → OUT-001.png
std::string Numbered(const std::string& file, unsigned number) {
    char text[16];
    std::snprintf(text, sizeof text, "-%03u", number);
    const size_t name = file.rfind('/') + 1; // 0 without one
    const size_t dot = file.rfind('.');
    const size_t at = dot == std::string::npos || dot <= name ? file.size() : dot;
    return file.substr(0, at) + text + file.substr(at);
}

unsigned WantedCount(const Conversion& conversion) {
    if (conversion.In.Page || conversion.Wanted == WantedPages::First)
        return static_cast<unsigned>(conversion.Inputs.size());
    unsigned count = 0;
    for (const std::string& input : conversion.Inputs)
        count += CountPages(input);
    return count;
}

} // namespace

int Convert(const standin::Filter& filter, const Conversion& conversion) {
    const unsigned count = WantedCount(conversion);
    const bool numbered = conversion.Wanted == WantedPages::All && !conversion.In.Page &&
                          conversion.Out.Kind != OutputKind::Tiff && count > 1;
    std::vector<std::pair<std::string, std::string>> damages;
    const auto forEachPage = [&](const std::function<void(Page&, unsigned)>& take) {
        for (const std::string& input : conversion.Inputs)
            VisitPages(filter, input, conversion.In, conversion.Wanted, conversion.RawFormats,
                       [&](Page& page, unsigned number) {
                           take(page, number);
                           if (!page.Damage.empty())
                               damages.emplace_back(input, page.Damage);
                       });
    };

    if (conversion.Out.Kind == OutputKind::Tiff) {
        WritePages(filter, conversion.Out, count > 1, [&](const AppendPage& append) {
            forEachPage([&](Page& page, unsigned /*number*/) { append(page); });
        });
    } else {
        forEachPage([&](Page& page, unsigned number) {
            Output output = conversion.Out;
            if (numbered)
                output.File = Numbered(output.File, number);
            WritePage(filter, output, page);
        });
    }
    for (const auto& [file, damage] : damages)
        Complain(file, "damaged: " + damage + "; lines that could not be decoded are blank");
    return damages.empty() ? EXIT_GOOD : EXIT_DAMAGED;
}

} // namespace kfax
