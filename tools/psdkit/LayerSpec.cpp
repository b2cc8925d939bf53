#include "LayerSpec.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "Cli.hpp"

namespace psdkit::cli {

namespace {

bool endsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// "#50", "#50%", "#12.5": the percentage, or nothing when the text after '#' is not a number.
std::optional<double> takePercentage(std::string& text)
{
    const auto hash = text.rfind('#');
    if (hash == std::string::npos) {
        return std::nullopt;
    }
    std::string number = text.substr(hash + 1);
    if (endsWith(number, "%")) {
        number.pop_back();
    }
    if (number.empty() || !std::all_of(number.begin(), number.end(), [](char c) {
            return std::isdigit(static_cast<unsigned char>(c)) || c == '.';
        })) {
        return std::nullopt;
    }
    char* end = nullptr;
    const double value = std::strtod(number.c_str(), &end);
    if (end != number.c_str() + number.size() || !(value >= 0.0 && value <= 100.0)) {
        throw UsageError("opacity must be a percentage from 0 to 100 in '" + text + "'");
    }
    text.resize(hash);
    return value / 100.0;
}

// "@x,y": the position, or nothing when there is no '@' or what follows it belongs to the file
// name (a file that exists, or text holding ".png" or a path separator). Anything else after '@'
// is a position written wrongly, and a UsageError says so.
bool takePosition(std::string& text, LayerSpec& entry)
{
    const auto at = text.rfind('@');
    if (at == std::string::npos) {
        return false;
    }
    const std::string position = text.substr(at + 1);
    std::string lower = position;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const bool partOfFileName =
        lower.find(".png") != std::string::npos || lower.find('/') != std::string::npos;
    const auto comma = position.find(',');
    constexpr std::int64_t limit = 1'000'000'000;
    const auto x =
        comma == std::string::npos ? std::nullopt : parseInteger(position.substr(0, comma), -limit, limit);
    const auto y =
        comma == std::string::npos ? std::nullopt : parseInteger(position.substr(comma + 1), -limit, limit);
    if (!x || !y) {
        std::error_code ec;
        if (partOfFileName || std::filesystem::exists(text, ec)) {
            return false;
        }
        throw UsageError(
            "the position after '@' must be two whole numbers of pixels, as in '@10,-20', not '@" + position +
            "' in '" + text + "'");
    }
    entry.x = *x;
    entry.y = *y;
    text.resize(at);
    return true;
}

void takeSuffixes(std::string& text, LayerSpec& entry)
{
    if (endsWith(text, "!hidden")) {
        entry.hidden = true;
        text.resize(text.size() - 7);
    }
    if (const auto opacity = takePercentage(text)) {
        entry.opacity = *opacity;
    }
}

} // namespace

LayerSpec parseLayerSpec(const std::string& argument)
{
    LayerSpec entry;
    if (argument == "]") {
        entry.kind = LayerSpec::Kind::closeGroup;
        return entry;
    }
    std::string text = argument;
    if (text.rfind("[group", 0) == 0) {
        entry.kind = LayerSpec::Kind::openGroup;
        takeSuffixes(text, entry);
        text.erase(0, 6);
        if (!text.empty() && text[0] != ':') {
            throw UsageError("a group marker is '[group' or '[group:Name', not '" + argument + "'");
        }
        entry.name = text.empty() ? "Group" : text.substr(1);
        return entry;
    }
    takeSuffixes(text, entry);
    takePosition(text, entry);
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (const auto split = lower.find(".png:"); split != std::string::npos) {
        entry.file = text.substr(0, split + 4);
        entry.name = text.substr(split + 5);
    } else {
        entry.file = text;
        entry.name = std::filesystem::path(text).stem().string();
    }
    if (entry.file.empty()) {
        throw UsageError("a layer needs a PNG file: '" + argument + "'");
    }
    return entry;
}

} // namespace psdkit::cli
