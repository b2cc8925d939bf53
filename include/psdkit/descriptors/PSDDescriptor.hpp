#pragma once
// PSDDescriptor: the format's self-describing key/value structure, used for fill and adjustment
// settings, effects, gradients, colours and rectangles kept in layer blocks and image resources.
// A descriptor has a name, a class ID and items; each item is an identifier and a value of one of
// nine kinds, and a value may itself be a descriptor or a list.
//
// A descriptor is a reference object: nested descriptors are held through `std::shared_ptr` and
// shared by everyone who holds them. One thread at a time may use a descriptor tree; writing a tree
// changes it (`isNested` of nested descriptors), so it must not be written from two threads at once.
//
// Layout in a file (big-endian): version 16 (4 bytes, top-level descriptors only); the name as a
// Unicode string; the class ID; the item count (4 bytes); per item the key, a four-byte type tag
// and the value. Identifiers (class ID, keys, both halves of an enumerated value) are a 4-byte
// length L: 0 is followed by a four-character code, any other L by L Mac OS Roman bytes.
#include "psdkit/Export.hpp"
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDScanner.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/descriptors/Enumerated.hpp"
#include "psdkit/descriptors/PSDDescriptorProperties.hpp"
#include "psdkit/descriptors/PSDDescriptorPropertyValue.hpp"
#include "psdkit/descriptors/PSDUnitFloat.hpp"
#include "psdkit/descriptors/UnifiedStringValue.hpp"

namespace psdkit {

/// A descriptor: a name, a class ID and ordered items. Held by `std::shared_ptr` and shared by
/// everyone who holds it; not copyable. One thread at a time per tree.
class PSDKIT_EXPORT PSDDescriptor {
  public:
    using UnifiedStringValue = psdkit::UnifiedStringValue; ///< An identifier (code or string).
    using Enumerated = psdkit::Enumerated;                 ///< An enumerated value.

    /// How deeply descriptors and lists may nest below a top-level descriptor. Real files nest a
    /// handful of levels; a file nesting deeper is refused on reading with readCorruptFile, and a
    /// tree nesting deeper (or containing itself) is refused on writing with writeParameterError,
    /// so that neither can exhaust the stack. Text forms and content comparison stop at this depth.
    static constexpr int maximumNestingDepth = 128;

    /// A top-level descriptor with the name "\0" (one NUL character), the class ID code "null"
    /// and no items.
    PSDDescriptor();
    /// The same with the given class ID.
    explicit PSDDescriptor(UnifiedStringValue classID_);

    PSDDescriptor(const PSDDescriptor&) = delete;
    PSDDescriptor& operator=(const PSDDescriptor&) = delete;

    /// True for a descriptor that is the value of an item of another descriptor: it has no version
    /// word in a file. Reading a nested value and writing a parent set it.
    bool isNested = false;
    /// The name, exactly as stored (a stored trailing NUL stays the last character).
    std::string name = std::string(1, '\0');
    /// The class ID, such as the code "RGBC" for a colour.
    UnifiedStringValue classID = PSDFourCharCode("null");
    /// The items, in the order their keys were first stored.
    PSDDescriptorProperties properties;

    /// The value stored under `key`, or nothing.
    [[nodiscard]] std::optional<PSDDescriptorPropertyValue> operator[](const UnifiedStringValue& key) const;
    /// Stores `value` under `key` (replacing a value already there, in its place); nothing (an
    /// empty optional) removes the key.
    void set(const UnifiedStringValue& key, std::optional<PSDDescriptorPropertyValue> value);
    /// The value under `key` when it is of kind `T`, else nullptr (absent or of another kind).
    template <typename T> [[nodiscard]] const T* valueAs(const UnifiedStringValue& key) const
    {
        const auto* value = properties.find(key);
        return value ? value->getIf<T>() : nullptr;
    }
    /// The value under `key` when it is of kind `T`, else nullptr; it may be changed in place.
    template <typename T> [[nodiscard]] T* valueAs(const UnifiedStringValue& key)
    {
        auto* value = properties.find(key);
        return value ? value->getIf<T>() : nullptr;
    }
    /// The nested descriptor under `key`, or nullptr when absent or not a descriptor.
    [[nodiscard]] PSDDescriptor* descriptorValue(const UnifiedStringValue& key) const;

    /// Fills this descriptor from the scanner's position, advancing the scanner past it: unless
    /// `isNested`, the version (must be 16); then `name` and `classID` (each stored at once) and
    /// the items, each stored in `properties` as it is read (a key read again replaces the earlier
    /// value). `properties` is not cleared first. Writes one trace line per item of every
    /// descriptor read (list elements excluded) to the diagnostics sink. `big` (the file is a PSB)
    /// does not change the layout.
    /// Throws PSDException: readUnexpectedEndOfFile (bytes missing; also an item or list count of
    /// 2^31 or more), readUnsupportedDescriptorVersion, readUnsupportedDescriptorValueType (unknown
    /// type tag, after its trace line), readUnsupportedContentType (unknown unit), readParameterError
    /// (negative "tdta" length, a code that is not four characters), readCorruptFile (nesting
    /// deeper than maximumNestingDepth). On failure what was stored so far stays: name, class ID,
    /// the items before the failing one (a nested descriptor that failed is not stored).
    void read(PSDScanner& psdScanner, bool big);

    /// The bytes of this descriptor (without version word when `isNested`). The name gains a
    /// trailing NUL unless it ends with one. Items are written in the order of `properties`.
    /// Sets `isNested` on every nested descriptor reached, also when a later part fails.
    /// Throws PSDException: writeUnknownError (a string identifier without Mac OS Roman form, a
    /// code whose Mac OS Roman form is not four bytes, a name that is not valid UTF-8),
    /// writeParameterError (a count or byte buffer of 2^31 or more, a null descriptor handle,
    /// nesting deeper than maximumNestingDepth or a descriptor containing itself).
    [[nodiscard]] std::vector<std::uint8_t> data();

    /// Appends one value (its type tag and bytes) to `writer`; lists recursively. Errors as data().
    static void writePropertyValue(PSDWriter& writer, const PSDDescriptorPropertyValue& value);
    /// Reads one value laid out by `typeTag` ("Objc", "GlbO", "doub", "UntF", "TEXT", "enum",
    /// "long", "bool", "VlLs", "tdta"). Errors as read().
    [[nodiscard]] static PSDDescriptorPropertyValue readPropertyValue(PSDScanner& psdScanner, bool big,
                                                                      const PSDFourCharCode& typeTag);

    /// "[Descriptor (Name: <name>, ClassID: <class ID>) : <items>]", the items as "[:]" when there
    /// are none, else "[" + "key: value" entries joined by ", " + "]" in item order. Levels below
    /// maximumNestingDepth are written as "[...]".
    [[nodiscard]] std::string debugDescription() const;

    /// Same name, class ID and items (compared as maps, values by content, nested descriptors
    /// recursively); `isNested` is not compared. Trees deeper than maximumNestingDepth compare
    /// unequal below that depth unless they are the same objects.
    [[nodiscard]] bool hasSameContent(const PSDDescriptor& other) const;
};

} // namespace psdkit
