#pragma once
// The LAYER arguments of `psdkit create`.
//
//   file.png[:name][@x,y][#opacity][!hidden]   a layer from a PNG file
//   [group[:name][#opacity][!hidden]           opens a group
//   ]                                          closes the innermost open group
//
// The suffixes are recognised from the end, in the order shown: "!hidden", then "#" followed by a
// percentage 0-100 (a trailing "%" is allowed), then "@" followed by two integers. What is left is
// the file, up to the first ".png:" (any letter case), and the name after it. Text that does not
// form a suffix stays part of the name or file.
#include <cstdint>
#include <string>

namespace psdkit::cli {

struct LayerSpec {
    enum class Kind { layer, openGroup, closeGroup };
    Kind kind = Kind::layer;
    /// The PNG file (layers only).
    std::string file;
    /// The layer or group name; for a layer without one, the file name without its extension;
    /// for a group without one, "Group".
    std::string name;
    std::int64_t x = 0;
    std::int64_t y = 0;
    /// 0 to 1.
    double opacity = 1.0;
    bool hidden = false;
};

/// Parses one LAYER argument. Throws UsageError for an empty file name or a bad percentage.
[[nodiscard]] LayerSpec parseLayerSpec(const std::string& argument);

} // namespace psdkit::cli
