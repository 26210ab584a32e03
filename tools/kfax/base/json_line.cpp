// Lines of JSON.
#include "tools/kfax/base/json_line.h"

#include "tools/kfax/base/utf8.h"

#include <string_view>

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

bool IsUtf8(const Json& value) {
    if (value.is_string())
        return IsUtf8(std::string_view(value.get_ref<const std::string&>()));
    for (const Json& item : value)
        if (!IsUtf8(item))
            return false;
    return true;
}

Json PercentEncoded(const Json& value) {
    if (!value.is_string()) {
        Json items = Json::array();
        for (const Json& item : value)
            items.push_back(PercentEncoded(item));
        return items;
    }
    static constexpr char kHex[] = "0123456789ABCDEF";
    static constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~/";
    std::string encoded;
    for (const char c : value.get_ref<const std::string&>()) {
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
    for (const char* const names : {"file", "outputs"})
        if (json.contains(names) && !IsUtf8(json[names]))
            line[std::string(names) + "_percent_encoded"] = PercentEncoded(json[names]);
    return line.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace kfax
