#pragma once
// PSDDescriptorPropertyValue: the value of one descriptor item. It is a closed set of nine kinds;
// code that uses a value asks which kind it holds. Lists hold values of any kind, so lists nest
// and may mix kinds. A nested descriptor is held by reference: copying a value that holds one
// shares the descriptor.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "psdkit/descriptors/Enumerated.hpp"
#include "psdkit/descriptors/PSDUnitFloat.hpp"

namespace psdkit {

class PSDDescriptor;

/// The value of one descriptor item: one of nine kinds (see `Variant`). A value type, except that
/// a nested descriptor is shared, not copied.
class PSDKIT_EXPORT PSDDescriptorPropertyValue {
  public:
    using List = std::vector<PSDDescriptorPropertyValue>; ///< A list of values of any kinds.
    using Bytes = std::vector<std::uint8_t>;              ///< Raw bytes.
    /// The nine kinds, in the order the writer tests them. A 64-bit integer is not among them:
    /// descriptor integers are signed 32-bit.
    using Variant = std::variant<std::shared_ptr<PSDDescriptor>, // "Objc" (read also from "GlbO")
                                 double,                         // "doub"
                                 PSDUnitFloat,                   // "UntF"
                                 std::string,                    // "TEXT", UTF-8
                                 Enumerated,                     // "enum"
                                 std::int32_t,                   // "long"
                                 bool,                           // "bool"
                                 List,                           // "VlLs"
                                 Bytes>;                         // "tdta"

    // One constructor per kind. A null descriptor handle is accepted but is not a value: writing
    // it fails with writeParameterError and the conversions treat it as missing.
    /// A nested descriptor, shared with the caller (see above for a null handle).
    PSDDescriptorPropertyValue(std::shared_ptr<PSDDescriptor> descriptor)
        : value_(std::move(descriptor)) {} // NOLINT
    /// A double.
    PSDDescriptorPropertyValue(double number) : value_(number) {} // NOLINT
    /// A number with a unit.
    PSDDescriptorPropertyValue(PSDUnitFloat unitFloat) : value_(unitFloat) {} // NOLINT
    /// UTF-8 text.
    PSDDescriptorPropertyValue(std::string text) : value_(std::move(text)) {} // NOLINT
    /// Text from a literal is a string (not a boolean).
    PSDDescriptorPropertyValue(const char* text) : value_(std::string(text)) {} // NOLINT
    /// An enumerated value.
    PSDDescriptorPropertyValue(Enumerated enumerated) : value_(std::move(enumerated)) {} // NOLINT
    /// A signed 32-bit integer.
    PSDDescriptorPropertyValue(std::int32_t integer) : value_(integer) {} // NOLINT
    /// A boolean.
    PSDDescriptorPropertyValue(bool flag) : value_(flag) {} // NOLINT
    /// A list.
    PSDDescriptorPropertyValue(List list) : value_(std::move(list)) {} // NOLINT
    /// Raw bytes.
    PSDDescriptorPropertyValue(Bytes bytes) : value_(std::move(bytes)) {} // NOLINT

    /// True when the value is of kind `T` (one of the `Variant` alternatives).
    template <typename T> [[nodiscard]] bool holds() const noexcept
    {
        return std::holds_alternative<T>(value_);
    }
    /// The value as kind `T`, or nullptr when it is of another kind.
    template <typename T> [[nodiscard]] const T* getIf() const noexcept { return std::get_if<T>(&value_); }
    /// The value as kind `T`, or nullptr; it may be changed in place.
    template <typename T> [[nodiscard]] T* getIf() noexcept { return std::get_if<T>(&value_); }
    /// The nested descriptor, or nullptr when the value is not a descriptor (or a null handle).
    [[nodiscard]] PSDDescriptor* descriptor() const noexcept
    {
        const auto* handle = getIf<std::shared_ptr<PSDDescriptor>>();
        return handle ? handle->get() : nullptr;
    }

    /// The value as a `std::variant`, for `std::visit`.
    [[nodiscard]] const Variant& variant() const noexcept { return value_; }
    /// The same, changeable in place.
    [[nodiscard]] Variant& variant() noexcept { return value_; }

    /// Equal kinds and equal contents; nested descriptors are compared by their contents (see
    /// `PSDDescriptor::hasSameContent`), doubles by value with NaN equal to NaN.
    [[nodiscard]] bool hasSameContent(const PSDDescriptorPropertyValue& other) const;

    /// The value's debug text: a descriptor's debugDescription, the shortest decimal text of a
    /// double, a unit float's debugDescription, a string in its debug form (quoted and escaped),
    /// an enumerated value's description, an integer's digits, "true"/"false", a list as
    /// "[a, b]", a byte buffer as "<n> bytes". A null descriptor handle is "nil".
    [[nodiscard]] std::string debugDescription() const;

  private:
    Variant value_;
};

} // namespace psdkit
