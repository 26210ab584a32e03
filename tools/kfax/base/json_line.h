// JSON for programs that read kfax: one object a line.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kfax {

// With a line feed. File names need not be UTF-8: what is not is replaced, and a member "file" or "outputs"
// of which something was replaced has another beside it, "file_percent_encoded" or "outputs_percent_encoded",
// from which the bytes can be had back (RFC 3986).
std::string JsonLine(const nlohmann::ordered_json& json);

} // namespace kfax
