// JSON for programs that read kfax: one object a line.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kfax {

// With a line feed. File names need not be UTF-8: what is not is replaced.
inline std::string JsonLine(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

} // namespace kfax
