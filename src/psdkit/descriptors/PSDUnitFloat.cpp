#include "psdkit/descriptors/PSDUnitFloat.hpp"

#include <array>

#include "psdkit/descriptors/DescriptorTextForms.hpp"

namespace psdkit {
namespace {
struct UnitRow {
    PSDUnitFloat::Unit unit;
    const char* code;
    const char* suffix;
};
const std::array<UnitRow, 6>& unitTable()
{
    static const std::array<UnitRow, 6> table = {{
        {PSDUnitFloat::Unit::angle, "#Ang", " \u00B0"},
        {PSDUnitFloat::Unit::resolution, "#Rsl", " dpi"},
        {PSDUnitFloat::Unit::distance, "#Rlt", " dist"},
        {PSDUnitFloat::Unit::none, "#Nne", " none"},
        {PSDUnitFloat::Unit::percent, "#Prc", " %"},
        {PSDUnitFloat::Unit::pixels, "#Pxl", " Px"},
    }};
    return table;
}
const UnitRow& rowOf(PSDUnitFloat::Unit unit)
{
    for (const auto& row : unitTable()) {
        if (row.unit == unit) {
            return row;
        }
    }
    return unitTable()[3]; // not reached: every enumerator has a row
}
} // namespace

PSDFourCharCode PSDUnitFloat::unitCode(Unit unit)
{
    return PSDFourCharCode(std::string(rowOf(unit).code));
}

std::optional<PSDUnitFloat::Unit> PSDUnitFloat::unitFromCode(const PSDFourCharCode& code)
{
    for (const auto& row : unitTable()) {
        if (code.rawValue() == row.code) {
            return row.unit;
        }
    }
    return std::nullopt;
}

std::string PSDUnitFloat::debugDescription() const
{
    return detail::shortestDecimalText(value) + rowOf(unit).suffix;
}

} // namespace psdkit
