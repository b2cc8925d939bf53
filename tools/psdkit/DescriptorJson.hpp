#pragma once
// Descriptors as JSON, for `psdkit descriptors`.
//
// A descriptor is {"name", "classID", "items": {key: value}}; every value is an object with its
// type tag and its contents:
//   {"type": "Objc", "value": descriptor}     {"type": "doub", "value": 1.5}
//   {"type": "UntF", "unit": "#Pxl", "value": 3.0}
//   {"type": "TEXT", "value": "text"}         {"type": "enum", "enumType": "BlnM", "value": "Nrml"}
//   {"type": "long", "value": 7}              {"type": "bool", "value": true}
//   {"type": "VlLs", "value": [values]}       {"type": "tdta", "length": n, "hex": "0a1b…"}
// Identifiers (class IDs, keys, enumeration halves) appear as their text, whether the file stores
// them as four-character codes or as longer strings.
#include "DocumentJson.hpp"
#include "psdkit/descriptors/PSDDescriptor.hpp"

namespace psdkit::cli {

[[nodiscard]] Json descriptorJson(const PSDDescriptor& descriptor);

} // namespace psdkit::cli
