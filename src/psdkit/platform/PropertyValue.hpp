#pragma once
// PropertyValue: the "any value" of the host-private property maps of documents and layers. It
// holds what a property list can hold (dictionary with text keys, array, integer, real, boolean,
// text, date, data) plus a four-character code, which the layer model uses for its
// "PSD Blend Mode" property and which has no property-list form.
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
struct PropertyDate {
    double secondsSinceReferenceDate = 0.0;
    friend bool operator==(const PropertyDate&, const PropertyDate&) = default;
};

class PropertyValue {
  public:
    using Storage = std::variant<PropertyDictionary, PropertyArray, std::int64_t, double, bool, std::string,
                                 PropertyDate, std::vector<std::uint8_t>, PSDFourCharCode>;

    /// An empty dictionary.
    PropertyValue();
    PropertyValue(PropertyDictionary value);        // NOLINT: implicit by design
    PropertyValue(PropertyArray value);             // NOLINT
    PropertyValue(double value);                    // NOLINT
    PropertyValue(bool value);                      // NOLINT
    PropertyValue(std::string value);               // NOLINT
    PropertyValue(std::string_view value);          // NOLINT
    PropertyValue(const char* value);               // NOLINT: text, never a boolean
    PropertyValue(PropertyDate value);              // NOLINT
    PropertyValue(std::vector<std::uint8_t> value); // NOLINT: data
    PropertyValue(PSDFourCharCode value);           // NOLINT
    /// Any integer type except bool becomes the 64-bit integer alternative. Unsigned values
    /// above INT64_MAX wrap to negative numbers (two's complement).
    template <std::integral I>
    requires(!std::same_as<I, bool> && !std::same_as<I, char>)
        PropertyValue(I value) // NOLINT: implicit by design
        : storage_(static_cast<std::int64_t>(value))
    {
    }

    PropertyValue(const PropertyValue&);
    PropertyValue(PropertyValue&&) noexcept;
    PropertyValue& operator=(const PropertyValue&);
    PropertyValue& operator=(PropertyValue&&) noexcept;
    ~PropertyValue();

    [[nodiscard]] bool isDictionary() const noexcept { return is<PropertyDictionary>(); }
    [[nodiscard]] bool isArray() const noexcept { return is<PropertyArray>(); }
    [[nodiscard]] bool isInteger() const noexcept { return is<std::int64_t>(); }
    [[nodiscard]] bool isReal() const noexcept { return is<double>(); }
    [[nodiscard]] bool isBool() const noexcept { return is<bool>(); }
    [[nodiscard]] bool isString() const noexcept { return is<std::string>(); }
    [[nodiscard]] bool isDate() const noexcept { return is<PropertyDate>(); }
    [[nodiscard]] bool isData() const noexcept { return is<std::vector<std::uint8_t>>(); }
    [[nodiscard]] bool isFourCharCode() const noexcept { return is<PSDFourCharCode>(); }

    /// The held value when it is of the asked kind, else null (like `std::get_if`). The pointer
    /// stays valid until this value is assigned to or destroyed.
    [[nodiscard]] const PropertyDictionary* asDictionary() const noexcept
    {
        return getIf<PropertyDictionary>();
    }
    [[nodiscard]] PropertyDictionary* asDictionary() noexcept { return getIf<PropertyDictionary>(); }
    [[nodiscard]] const PropertyArray* asArray() const noexcept { return getIf<PropertyArray>(); }
    [[nodiscard]] PropertyArray* asArray() noexcept { return getIf<PropertyArray>(); }
    [[nodiscard]] const std::int64_t* asInt() const noexcept { return getIf<std::int64_t>(); }
    [[nodiscard]] const double* asReal() const noexcept { return getIf<double>(); }
    [[nodiscard]] const bool* asBool() const noexcept { return getIf<bool>(); }
    [[nodiscard]] const std::string* asString() const noexcept { return getIf<std::string>(); }
    [[nodiscard]] const PropertyDate* asDate() const noexcept { return getIf<PropertyDate>(); }
    [[nodiscard]] const std::vector<std::uint8_t>* asData() const noexcept
    {
        return getIf<std::vector<std::uint8_t>>();
    }
    [[nodiscard]] const PSDFourCharCode* asFourCharCode() const noexcept { return getIf<PSDFourCharCode>(); }

    template <class T> [[nodiscard]] bool is() const noexcept { return std::holds_alternative<T>(storage_); }
    template <class T> [[nodiscard]] const T* getIf() const noexcept { return std::get_if<T>(&storage_); }
    template <class T> [[nodiscard]] T* getIf() noexcept { return std::get_if<T>(&storage_); }

    /// The variant itself, for `std::visit`.
    [[nodiscard]] const Storage& storage() const noexcept { return storage_; }
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
