#pragma once
// PropertyValue: the "any value" of the host-private property maps of documents and layers. It
// holds what a property list can hold (dictionary with text keys, array, integer, real, boolean,
// text, date, data) plus a four-character code, which the layer model uses for its
// "PSD Blend Mode" property and which has no property-list form.
#include "psdkit/Export.hpp"
#include <concepts>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "psdkit/core/PSDFourCharCode.hpp"

namespace psdkit {

class PropertyValue;

/// A dictionary with text keys. Keys are kept sorted (byte order), so writing is deterministic.
using PropertyDictionary = std::map<std::string, PropertyValue>;
/// An ordered list of values.
using PropertyArray = std::vector<PropertyValue>;

/// A point in time: seconds since the reference date 2001-01-01 00:00:00 UTC (negative before
/// it). Property lists store dates with limited precision; see PropertyList.hpp.
struct PSDKIT_EXPORT PropertyDate {
    double secondsSinceReferenceDate = 0.0; ///< Seconds since 2001-01-01 00:00:00 UTC.
    /// Equal when the seconds are.
    friend bool operator==(const PropertyDate&, const PropertyDate&) = default;
};

/// One value of a property map: a dictionary, array, integer, real, boolean, text, date, data or
/// four-character code. A value type: copies are deep and independent.
class PSDKIT_EXPORT PropertyValue {
  public:
    /// The alternatives, in the order `std::visit` sees them.
    using Storage = std::variant<PropertyDictionary, PropertyArray, std::int64_t, double, bool, std::string,
                                 PropertyDate, std::vector<std::uint8_t>, PSDFourCharCode>;

    /// An empty dictionary.
    PropertyValue();
    // Implicit constructors, one per kind, so that maps can be written as literals.
    /// A dictionary.
    PropertyValue(PropertyDictionary value); // NOLINT: implicit by design
    /// An array.
    PropertyValue(PropertyArray value); // NOLINT
    /// A real.
    PropertyValue(double value); // NOLINT
    /// A boolean.
    PropertyValue(bool value); // NOLINT
    /// Text (UTF-8).
    PropertyValue(std::string value); // NOLINT
    /// Text (UTF-8), copied.
    PropertyValue(std::string_view value); // NOLINT
    /// Text (UTF-8), copied; never a boolean.
    PropertyValue(const char* value); // NOLINT: text, never a boolean
    /// A date.
    PropertyValue(PropertyDate value); // NOLINT
    /// Data (bytes).
    PropertyValue(std::vector<std::uint8_t> value); // NOLINT: data
    /// A four-character code (no property-list form).
    PropertyValue(PSDFourCharCode value); // NOLINT
    /// Any integer type except bool becomes the 64-bit integer alternative. Unsigned values
    /// above INT64_MAX wrap to negative numbers (two's complement).
    template <std::integral I>
    requires(!std::same_as<I, bool> && !std::same_as<I, char>)
        PropertyValue(I value) // NOLINT: implicit by design
        : storage_(static_cast<std::int64_t>(value))
    {
    }

    PropertyValue(const PropertyValue&);                ///< A deep copy.
    PropertyValue(PropertyValue&&) noexcept;            ///< Takes over the value.
    PropertyValue& operator=(const PropertyValue&);     ///< Replaces the value with a deep copy.
    PropertyValue& operator=(PropertyValue&&) noexcept; ///< Takes over the value.
    ~PropertyValue();

    /// True when the value is a dictionary.
    [[nodiscard]] bool isDictionary() const noexcept { return is<PropertyDictionary>(); }
    /// True when the value is an array.
    [[nodiscard]] bool isArray() const noexcept { return is<PropertyArray>(); }
    /// True when the value is an integer.
    [[nodiscard]] bool isInteger() const noexcept { return is<std::int64_t>(); }
    /// True when the value is a real.
    [[nodiscard]] bool isReal() const noexcept { return is<double>(); }
    /// True when the value is a boolean.
    [[nodiscard]] bool isBool() const noexcept { return is<bool>(); }
    /// True when the value is text.
    [[nodiscard]] bool isString() const noexcept { return is<std::string>(); }
    /// True when the value is a date.
    [[nodiscard]] bool isDate() const noexcept { return is<PropertyDate>(); }
    /// True when the value is data.
    [[nodiscard]] bool isData() const noexcept { return is<std::vector<std::uint8_t>>(); }
    /// True when the value is a four-character code.
    [[nodiscard]] bool isFourCharCode() const noexcept { return is<PSDFourCharCode>(); }

    /// The held value when it is of the asked kind, else null (like `std::get_if`). The pointer
    /// stays valid until this value is assigned to or destroyed.
    [[nodiscard]] const PropertyDictionary* asDictionary() const noexcept
    {
        return getIf<PropertyDictionary>();
    }
    /// The dictionary, changeable in place, or null.
    [[nodiscard]] PropertyDictionary* asDictionary() noexcept { return getIf<PropertyDictionary>(); }
    /// The array, or null.
    [[nodiscard]] const PropertyArray* asArray() const noexcept { return getIf<PropertyArray>(); }
    /// The array, changeable in place, or null.
    [[nodiscard]] PropertyArray* asArray() noexcept { return getIf<PropertyArray>(); }
    /// The integer, or null.
    [[nodiscard]] const std::int64_t* asInt() const noexcept { return getIf<std::int64_t>(); }
    /// The real, or null.
    [[nodiscard]] const double* asReal() const noexcept { return getIf<double>(); }
    /// The boolean, or null.
    [[nodiscard]] const bool* asBool() const noexcept { return getIf<bool>(); }
    /// The text, or null.
    [[nodiscard]] const std::string* asString() const noexcept { return getIf<std::string>(); }
    /// The date, or null.
    [[nodiscard]] const PropertyDate* asDate() const noexcept { return getIf<PropertyDate>(); }
    /// The data, or null.
    [[nodiscard]] const std::vector<std::uint8_t>* asData() const noexcept
    {
        return getIf<std::vector<std::uint8_t>>();
    }
    /// The four-character code, or null.
    [[nodiscard]] const PSDFourCharCode* asFourCharCode() const noexcept { return getIf<PSDFourCharCode>(); }

    /// True when the value holds alternative `T` of `Storage`.
    template <class T> [[nodiscard]] bool is() const noexcept { return std::holds_alternative<T>(storage_); }
    /// The value as alternative `T`, or null.
    template <class T> [[nodiscard]] const T* getIf() const noexcept { return std::get_if<T>(&storage_); }
    /// The value as alternative `T`, changeable in place, or null.
    template <class T> [[nodiscard]] T* getIf() noexcept { return std::get_if<T>(&storage_); }

    /// The variant itself, for `std::visit`.
    [[nodiscard]] const Storage& storage() const noexcept { return storage_; }
    /// The variant itself, changeable in place.
    [[nodiscard]] Storage& storage() noexcept { return storage_; }

    /// Same kind and equal contents, recursively. An integer never equals a real (1 ≠ 1.0);
    /// reals compare with `==` (so NaN is unequal to itself); codes compare as `PSDFourCharCode`.
    friend bool operator==(const PropertyValue& a, const PropertyValue& b);

    /// A short readable form for logs and tests, e.g. {"a": [1, 2.5, true, "x", <2 bytes>]}.
    [[nodiscard]] std::string debugDescription() const;

  private:
    Storage storage_;
};

} // namespace psdkit
