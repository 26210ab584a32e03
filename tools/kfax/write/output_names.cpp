// Names of outputs.
#include "tools/kfax/write/output_names.h"

#include "tools/kfax/base/errors.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <unordered_map>

namespace kfax {

namespace {

using std::filesystem::path;

path PlaceOf(const std::string& input, const OutputNaming& naming) {
    const path whole = path(input).lexically_normal();
    if (!whole.has_filename())
        throw FileError(input, "names no file; list files only");
    if (!naming.KeepTree)
        return whole.filename();
    path below = whole.relative_path();
    if (*below.begin() == "..")
        throw FileError(input,
                        "lies above the current directory, where --keep-tree has no place for its output; "
                        "start kfax further up");
    return below;
}

// Links are not followed: an output that is its input all the same is noticed when it is written.
std::string Absolute(const std::string& file) {
    return std::filesystem::absolute(file).lexically_normal();
}

} // namespace

std::vector<std::string> NameOutputs(const std::vector<std::string>& inputs, const OutputNaming& naming,
                                     const std::string& extension) {
    std::unordered_map<std::string, const std::string*> inputOf;
    std::vector<std::string> outputs;
    outputs.reserve(inputs.size());
    for (const std::string& input : inputs) {
        path place = PlaceOf(input, naming);
        if (!naming.KeepExtension)
            place.replace_extension();
        place += extension;
        outputs.push_back(path(naming.Directory) / place);
        const auto [other, isNew] = inputOf.emplace(Absolute(outputs.back()), &input);
        if (!isNew && *other->second == input)
            throw FileError(input, "is listed twice; name it once");
        if (!isNew)
            throw FileError(input, "would be " + outputs.back() + ", as would " + *other->second +
                                       "; --keep-tree keeps directories and --keep-ext extensions apart");
    }
    for (const std::string& input : inputs)
        if (inputOf.contains(Absolute(input)))
            throw FileError(input, "an output would have its name; give another --out-dir");
    return outputs;
}

std::string Numbered(const std::string& file, unsigned number) {
    char text[16];
    std::snprintf(text, sizeof text, "-%03u", number);
    const size_t name = file.rfind('/') + 1; // 0 without one
    const size_t dot = file.rfind('.');
    const size_t at = dot == std::string::npos || dot <= name ? file.size() : dot;
    return file.substr(0, at) + text + file.substr(at);
}

} // namespace kfax
