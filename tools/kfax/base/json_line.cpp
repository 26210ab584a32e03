// Lines of JSON.
#include "tools/kfax/base/json_line.h"

#include "tools/kfax/base/utf8.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace kfax {

namespace {

using Json = nlohmann::ordered_json;

bool IsUtf8(std::string_view text) {
    uint32_t point = 0;
    while (!text.empty()) {
        const size_t length = Utf8Character(text, point);
        if (length == 0)
            return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string PercentEncoded(const std::string& text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    static constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (kPlain.find(c) != std::string_view::npos)
            encoded += c;
        else
            encoded += {'%', kHex[byte >> 4], kHex[byte & 15]};
    }
    return encoded;
}

} // namespace

std::string JsonLine(const Json& json) {
    Json line = json;
    if (json.contains("file")) {
        const std::string file = json["file"];
        if (!IsUtf8(file))
            line["file_percent_encoded"] = PercentEncoded(file);
    }
    if (json.contains("outputs")) {
        std::vector<std::string> outputs = json["outputs"];
        if (!std::all_of(outputs.begin(), outputs.end(), IsUtf8)) {
            std::transform(outputs.begin(), outputs.end(), outputs.begin(), PercentEncoded);
            line["outputs_percent_encoded"] = outputs;
        }
    }
    return line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace kfax
