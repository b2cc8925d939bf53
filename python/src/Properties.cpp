// Host property dictionaries <-> Python values, and the host's identity they are filed under.
#include <string>

#include <pybind11/stl.h>

#include "Bindings.hpp"
#include "Conversions.hpp"

#include "psdkit/platform/support/HostApplication.hpp"

namespace psdkit::python {

namespace {

// Deeper values are refused: a Python list that contains itself would otherwise recurse forever.
constexpr int maximumPropertyDepth = 256;

// Dates are seconds since 2001-01-01 00:00:00 UTC; Python's are datetime objects in UTC.
py::object referenceDate()
{
    const auto datetime = py::module_::import("datetime");
    return datetime.attr("datetime")(2001, 1, 1, py::arg("tzinfo") = datetime.attr("timezone").attr("utc"));
}

py::object toPython(const PropertyValue& value, int depth)
{
    if (depth > maximumPropertyDepth) {
        throw py::value_error("properties nested too deeply");
    }
    return std::visit(
        [&](const auto& v) -> py::object {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, PropertyDictionary>) {
                py::dict dict;
                for (const auto& [key, item] : v) {
                    dict[py::str(key)] = toPython(item, depth + 1);
                }
                return dict;
            } else if constexpr (std::is_same_v<T, PropertyArray>) {
                py::list list;
                for (const auto& item : v) {
                    list.append(toPython(item, depth + 1));
                }
                return list;
            } else if constexpr (std::is_same_v<T, PropertyDate>) {
                const auto timedelta = py::module_::import("datetime").attr("timedelta");
                return referenceDate() + timedelta(py::arg("seconds") = v.secondsSinceReferenceDate);
            } else if constexpr (std::is_same_v<T, std::vector<std::uint8_t>>) {
                return toBytes(v);
            } else if constexpr (std::is_same_v<T, PSDFourCharCode>) {
                return py::module_::import("psdkit.descriptors").attr("Code")(v.rawValue());
            } else {
                return py::cast(v); // std::int64_t, double, bool, std::string
            }
        },
        value.storage());
}

PropertyValue fromPython(const py::handle& object, int depth)
{
    if (depth > maximumPropertyDepth) {
        throw py::value_error("properties nested too deeply");
    }
    // bool before int: a Python bool is an int.
    if (py::isinstance<py::bool_>(object)) {
        return object.cast<bool>();
    }
    if (py::isinstance<py::int_>(object)) {
        return object.cast<std::int64_t>();
    }
    if (py::isinstance<py::float_>(object)) {
        return object.cast<double>();
    }
    if (py::isinstance<py::str>(object)) {
        return object.cast<std::string>();
    }
    if (py::isinstance<py::bytes>(object) || py::isinstance<py::bytearray>(object) ||
        py::isinstance<py::memoryview>(object)) {
        return fromBytesLike(object);
    }
    if (py::isinstance<py::dict>(object)) {
        PropertyDictionary dictionary;
        for (const auto& [key, item] : py::reinterpret_borrow<py::dict>(object)) {
            if (!py::isinstance<py::str>(key)) {
                throw py::type_error("property keys are str");
            }
            dictionary.insert_or_assign(key.cast<std::string>(), fromPython(item, depth + 1));
        }
        return dictionary;
    }
    if (py::isinstance<py::list>(object) || py::isinstance<py::tuple>(object)) {
        PropertyArray array;
        for (const auto& item : py::reinterpret_borrow<py::sequence>(object)) {
            array.push_back(fromPython(item, depth + 1));
        }
        return array;
    }
    const auto datetime = py::module_::import("datetime").attr("datetime");
    if (py::isinstance(object, datetime)) {
        if (object.attr("tzinfo").is_none()) {
            throw py::value_error("a property date must carry its time zone (tzinfo)");
        }
        const auto seconds = (object - referenceDate()).attr("total_seconds")().cast<double>();
        return PropertyDate{seconds};
    }
    if (py::isinstance(object, py::module_::import("psdkit.descriptors").attr("Code"))) {
        return toCode(object.attr("text").cast<std::string>());
    }
    throw py::type_error("a property is a dict, list, int, float, bool, str, bytes, datetime or psdkit.Code");
}

} // namespace

py::dict propertiesToPython(const PropertyDictionary& properties)
{
    return py::reinterpret_borrow<py::dict>(toPython(PropertyValue(properties), 0));
}

PropertyDictionary propertiesFromPython(const py::handle& object)
{
    if (!py::isinstance<py::dict>(object)) {
        throw py::type_error("properties are a dict with str keys");
    }
    return std::move(*fromPython(object, 0).asDictionary());
}

void bindHostApplication(py::module_& module)
{
    module.def(
        "set_host",
        [](const std::optional<std::string>& bundleIdentifier,
           const std::optional<std::string>& displayName) {
            auto host = HostApplication::current();
            host.bundleIdentifier = bundleIdentifier;
            host.displayName = displayName;
            HostApplication::setCurrent(std::move(host));
        },
        py::arg("bundle_identifier"), py::arg("display_name") = py::none(),
        "Names the program using psdkit, process-wide; call it before reading or writing. "
        "bundle_identifier (reverse-domain, such as 'org.example.tool') is the key the document's and "
        "layers' `properties` are stored under in a file: without one, properties are neither read nor "
        "saved (saving a document that has some raises PSDError 'writeParameterError'). display_name is "
        "the name the library's error texts use.");
}

} // namespace psdkit::python
