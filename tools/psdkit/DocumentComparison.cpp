#include "DocumentComparison.hpp"

#include <algorithm>
#include <cmath>
#include <sstream>

namespace psdkit::cli {

namespace {

std::string text(const std::string& value)
{
    return "\"" + value + "\"";
}
std::string text(bool value)
{
    return value ? "true" : "false";
}
std::string text(std::int64_t value)
{
    return std::to_string(value);
}
std::string text(double value)
{
    std::ostringstream out;
    out.precision(10);
    out << value;
    return out.str();
}
std::string text(const PSDMacRect& r)
{
    return "[" + text(r.top) + ", " + text(r.left) + ", " + text(r.bottom) + ", " + text(r.right) + "]";
}

/// Collects differences under a path prefix.
class Differences {
  public:
    explicit Differences(std::vector<std::string>& out) : out_(out) {}

    template <typename T> void field(const std::string& path, const T& before, const T& after)
    {
        if (!(before == after)) {
            out_.push_back(path + ": " + text(before) + " -> " + text(after));
        }
    }

    void close(const std::string& path, double before, double after, double tolerance)
    {
        if (!(std::abs(before - after) <= tolerance)) {
            out_.push_back(path + ": " + text(before) + " -> " + text(after));
        }
    }

    void note(const std::string& line) { out_.push_back(line); }

  private:
    std::vector<std::string>& out_;
};

/// Kept blocks are written padded to 4 bytes, so trailing zero bytes up to that are not a change.
bool samePadded(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b)
{
    const auto& shorter = a.size() <= b.size() ? a : b;
    const auto& longer = a.size() <= b.size() ? b : a;
    if (longer.size() - shorter.size() > 3 || !std::equal(shorter.begin(), shorter.end(), longer.begin())) {
        return false;
    }
    return std::all_of(longer.begin() + static_cast<std::ptrdiff_t>(shorter.size()), longer.end(),
                       [](std::uint8_t byte) { return byte == 0; });
}

void comparePixels(Differences& diff, const std::string& path, const image::PixelBufferType* before,
                   const image::PixelBufferType* after)
{
    if (!before || !after) {
        if (before || after) {
            diff.note(path + ": " + (before ? "present" : "absent") + " -> " +
                      (after ? "present" : "absent"));
        }
        return;
    }
    if (before->format() != after->format() || !(before->size() == after->size())) {
        diff.note(path + ": the image's size or pixel type changed");
        return;
    }
    const auto a = before->bytes();
    const auto b = after->bytes();
    const auto changed = std::mismatch(a.begin(), a.end(), b.begin());
    if (changed.first != a.end()) {
        const std::size_t pixel =
            static_cast<std::size_t>(changed.first - a.begin()) / image::bytesPerPixel(before->format());
        const auto width = static_cast<std::size_t>(std::max<std::int64_t>(before->size().width, 1));
        diff.note(path + ": pixels differ, first at x " + std::to_string(pixel % width) + ", y " +
                  std::to_string(pixel / width));
    }
}

// Kept blocks: the keys in order, then each block's signature, length width and bytes.
void compareKeptBlocks(Differences& diff, const std::string& p, const std::vector<PSDRawBlock>& a,
                       const std::vector<PSDRawBlock>& b)
{
    std::string keysBefore, keysAfter;
    for (const auto& block : a) {
        keysBefore += (keysBefore.empty() ? "" : " ") + block.key.rawValue();
    }
    for (const auto& block : b) {
        keysAfter += (keysAfter.empty() ? "" : " ") + block.key.rawValue();
    }
    diff.field(p + " keys", keysBefore, keysAfter);
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        if (a[i].key == b[i].key && !(a[i] == b[i])) {
            diff.note(p + "[" + std::to_string(i) + "] (" + a[i].key.rawValue() + "): the block changed");
        }
    }
}

void compareLayer(Differences& diff, const std::string& p, const PSDLayerWrapper& a, const PSDLayerWrapper& b)
{
    diff.field(p + ".name", a.name, b.name);
    diff.field(p + ".type", a.type().description(), b.type().description());
    diff.field(p + ".subtype", a.subtype.description(), b.subtype.description());
    diff.field(p + ".layerID", a.layerID, b.layerID);
    diff.field(p + ".contentsRect", a.contentsRect, b.contentsRect);
    diff.field(p + ".blendMode", a.blendMode.rawValue(), b.blendMode.rawValue());
    diff.field(p + ".opacity", a.opacity, b.opacity);
    diff.field(p + ".fillOpacity", a.fillOpacity, b.fillOpacity);
    diff.field(p + ".visible", a.visible, b.visible);
    diff.field(p + ".clipping", a.clipping, b.clipping);
    diff.field(p + ".lockFlags", a.lockFlags, b.lockFlags);
    diff.field(p + ".colorLabel", a.colorLabel, b.colorLabel);
    diff.field(p + ".hasLayerMask", a.hasLayerMask, b.hasLayerMask);
    diff.field(p + ".maskRect", a.maskRect, b.maskRect);
    diff.field(p + ".maskDefaultColor", a.maskDefaultColor, b.maskDefaultColor);
    diff.field(p + ".maskDisabled", a.maskDisabled, b.maskDisabled);
    diff.field(p + ".hasRealFlags", a.hasRealFlags, b.hasRealFlags);
    diff.field(p + ".realMaskRect", a.realMaskRect, b.realMaskRect);
    diff.field(p + ".layerBlendingRanges", a.layerBlendingRanges.has_value(),
               b.layerBlendingRanges.has_value());
    std::string keysBefore, keysAfter;
    for (const auto& [key, data] : a.taggedData) {
        keysBefore += (keysBefore.empty() ? "" : " ") + key.rawValue();
        const auto other = b.taggedData.find(key);
        if (other != b.taggedData.end() && !samePadded(data, other->second)) {
            diff.note(p + ".taggedData[" + key.rawValue() + "]: the block's bytes changed");
        }
    }
    for (const auto& [key, data] : b.taggedData) {
        keysAfter += (keysAfter.empty() ? "" : " ") + key.rawValue();
    }
    diff.field(p + ".taggedData keys", keysBefore, keysAfter);
    compareKeptBlocks(diff, p + ".uninterpretedBlocks", a.uninterpretedBlocks, b.uninterpretedBlocks);
    comparePixels(diff, p + ".contentImage", a.contentImage().get(), b.contentImage().get());
    comparePixels(diff, p + ".maskImage", a.maskImage().get(), b.maskImage().get());
}

} // namespace

std::vector<std::string> compareDocuments(const PSDWrapper& before, const PSDWrapper& after)
{
    std::vector<std::string> out;
    Differences diff(out);
    diff.field("bigFile", before.bigFile, after.bigFile);
    diff.field("imageWidth", before.imageWidth, after.imageWidth);
    diff.field("imageHeight", before.imageHeight, after.imageHeight);
    diff.field("bitDepth", before.bitDepth, after.bitDepth);
    diff.close("hRes", before.hRes, after.hRes, 1.0 / 65535.0);
    diff.close("vRes", before.vRes, after.vRes, 1.0 / 65535.0);
    diff.field("hResUnit", before.hResUnit, after.hResUnit);
    diff.field("vResUnit", before.vResUnit, after.vResUnit);
    diff.field("widthUnit", before.widthUnit, after.widthUnit);
    diff.field("heightUnit", before.heightUnit, after.heightUnit);
    diff.field("colorSpace", before.colorSpace.name(), after.colorSpace.name());
    if (before.colorSpace.name() == after.colorSpace.name() && !(before.colorSpace == after.colorSpace)) {
        diff.note("colorSpace: the profile's bytes changed");
    }
    diff.field("enableLayerEffects", before.enableLayerEffects, after.enableLayerEffects);
    diff.field("globalLightAngle", before.globalLightAngle, after.globalLightAngle);
    diff.field("globalLightAltitude", before.globalLightAltitude, after.globalLightAltitude);
    diff.field("patternData", before.patternData.has_value(), after.patternData.has_value());
    if (before.patternData && after.patternData && *before.patternData != *after.patternData) {
        diff.note("patternData: the bytes changed");
    }

    compareKeptBlocks(diff, "uninterpretedBlocks", before.uninterpretedBlocks, after.uninterpretedBlocks);

    std::string resourcesBefore, resourcesAfter;
    for (const auto& block : before.imageResources) {
        resourcesBefore += (resourcesBefore.empty() ? "" : " ") + std::to_string(block.identifier);
    }
    for (const auto& block : after.imageResources) {
        resourcesAfter += (resourcesAfter.empty() ? "" : " ") + std::to_string(block.identifier);
    }
    diff.field("imageResources", resourcesBefore, resourcesAfter);
    if (resourcesBefore == resourcesAfter) {
        for (std::size_t i = 0; i < before.imageResources.size(); ++i) {
            if (!(before.imageResources[i] == after.imageResources[i])) {
                diff.note("imageResources[" + std::to_string(before.imageResources[i].identifier) +
                          "]: the resource changed");
            }
        }
    }

    diff.field("layers.count", static_cast<std::int64_t>(before.layers.size()),
               static_cast<std::int64_t>(after.layers.size()));
    for (std::size_t i = 0; i < std::min(before.layers.size(), after.layers.size()); ++i) {
        compareLayer(diff, "layers[" + std::to_string(i) + "]", *before.layers[i], *after.layers[i]);
    }

    const std::size_t alphasBefore = before.alphaChannels ? before.alphaChannels->size() : 0;
    const std::size_t alphasAfter = after.alphaChannels ? after.alphaChannels->size() : 0;
    diff.field("alphaChannels.count", static_cast<std::int64_t>(alphasBefore),
               static_cast<std::int64_t>(alphasAfter));
    for (std::size_t i = 0; i < std::min(alphasBefore, alphasAfter); ++i) {
        const PSDAlphaChannel& a = *(*before.alphaChannels)[i];
        const PSDAlphaChannel& b = *(*after.alphaChannels)[i];
        const std::string p = "alphaChannels[" + std::to_string(i) + "]";
        diff.field(p + ".name", a.name.value_or("(none)"), b.name.value_or("(none)"));
        comparePixels(diff, p + ".image", a.image.get(), b.image.get());
    }
    const auto compositeBefore = before.compositeImage();
    const auto compositeAfter = after.compositeImage();
    comparePixels(diff, "composite", compositeBefore.get(), compositeAfter.get());
    return out;
}

} // namespace psdkit::cli
