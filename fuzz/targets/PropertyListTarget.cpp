// Property-list target: parses the input as an XML or binary property list and writes what it
// holds as XML. The XML must parse again, and writing that gives the same bytes (dates and reals
// may lose precision in the first XML text, never in the second).
#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/PropertyList.hpp"
#include "targets/FuzzTargets.hpp"

namespace psdkit::fuzz {

Outcome runPropertyList(std::span<const std::uint8_t> input)
{
    PropertyValue parsed;
    if (Outcome parse = attempt([&] { parsed = parsePropertyList(input); }); parse.result != "ok") {
        return parse;
    }
    (void)parsed.debugDescription();
    // Only dictionaries are written: a value of any other kind is written inside one.
    const PropertyDictionary dictionary =
        parsed.isDictionary() ? *parsed.asDictionary() : PropertyDictionary{{"value", parsed}};
    std::vector<std::uint8_t> written;
    if (Outcome write = attempt([&] { written = xmlPropertyList(dictionary); }); write.result != "ok") {
        // A date beyond what XML property lists can store is refused; nothing else may fail.
        if (write.result == "PlatformError.propertyListUnsupportedValue") {
            return write;
        }
        return violation("a parsed property list does not write", write);
    }
    PropertyValue reparsed;
    if (Outcome parse = attempt([&] { reparsed = parsePropertyList(written); }); parse.result != "ok") {
        return violation("a written property list does not parse", parse);
    }
    if (!reparsed.isDictionary()) {
        return violation("a written dictionary parses as something else");
    }
    std::vector<std::uint8_t> rewritten;
    if (Outcome write = attempt([&] { rewritten = xmlPropertyList(*reparsed.asDictionary()); });
        write.result != "ok" || rewritten != written) {
        return violation("a property list parsed from its own XML writes other bytes", write);
    }
    return {};
}

} // namespace psdkit::fuzz
