// Descriptors <-> the Python values of psdkit/descriptors.py.
#include <array>
#include <climits>
#include <string>

#include "Bindings.hpp"
#include "Conversions.hpp"

#include "psdkit/descriptors/PSDDescriptor.hpp"

namespace psdkit::python {

namespace {

constexpr std::array<std::pair<PSDUnitFloat::Unit, const char*>, 6> unitNames = {{
    {PSDUnitFloat::Unit::angle, "angle"},
    {PSDUnitFloat::Unit::resolution, "resolution"},
    {PSDUnitFloat::Unit::distance, "distance"},
    {PSDUnitFloat::Unit::none, "none"},
    {PSDUnitFloat::Unit::percent, "percent"},
    {PSDUnitFloat::Unit::pixels, "pixels"},
}};

py::module_ pythonTypes()
{
    return py::module_::import("psdkit.descriptors");
}

py::object toPython(const UnifiedStringValue& identifier, const py::module_& types)
{
    if (const auto* code = identifier.fourCharCodeValue()) {
        return types.attr("Code")(code->rawValue());
    }
    return py::str(identifier.text());
}

UnifiedStringValue identifierFromPython(const py::handle& object, const py::module_& types)
{
    if (py::isinstance(object, types.attr("Code"))) {
        return PSDFourCharCode(object.attr("text").cast<std::string>());
    }
    if (py::isinstance<py::str>(object)) {
        return UnifiedStringValue::string(object.cast<std::string>());
    }
    throw py::type_error("a descriptor identifier is a psdkit.Code or a str");
}

py::object toPython(const PSDDescriptor& descriptor, const py::module_& types, int depth);

py::object toPython(const PSDDescriptorPropertyValue& value, const py::module_& types, int depth)
{
    return std::visit(
        [&](const auto& v) -> py::object {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::shared_ptr<PSDDescriptor>>) {
                return v ? toPython(*v, types, depth + 1) : py::object(py::none());
            } else if constexpr (std::is_same_v<T, PSDUnitFloat>) {
                for (const auto& [unit, name] : unitNames) {
                    if (unit == v.unit) {
                        return types.attr("UnitFloat")(v.value, name);
                    }
                }
                return types.attr("UnitFloat")(v.value, "none");
            } else if constexpr (std::is_same_v<T, Enumerated>) {
                return types.attr("Enumerated")(toPython(v.type, types), toPython(v.value, types));
            } else if constexpr (std::is_same_v<T, PSDDescriptorPropertyValue::List>) {
                py::list list;
                for (const auto& item : v) {
                    list.append(toPython(item, types, depth + 1));
                }
                return list;
            } else if constexpr (std::is_same_v<T, PSDDescriptorPropertyValue::Bytes>) {
                return toBytes(v);
            } else {
                return py::cast(v); // double, std::string, std::int32_t, bool
            }
        },
        value.variant());
}

py::object toPython(const PSDDescriptor& descriptor, const py::module_& types, int depth)
{
    if (depth > PSDDescriptor::maximumNestingDepth) {
        throw py::value_error("descriptor nested too deeply");
    }
    py::object result = types.attr("Descriptor")();
    result.attr("name") = descriptor.name;
    result.attr("class_id") = toPython(descriptor.classID, types);
    for (const auto& [key, value] : descriptor.properties) {
        result[toPython(key, types)] = toPython(value, types, depth);
    }
    return result;
}

std::shared_ptr<PSDDescriptor> descriptorFromPython(const py::handle& object, const py::module_& types,
                                                    int depth);

PSDDescriptorPropertyValue valueFromPython(const py::handle& object, const py::module_& types, int depth)
{
    if (depth > PSDDescriptor::maximumNestingDepth) {
        throw py::value_error("descriptor nested too deeply");
    }
    if (py::isinstance<py::bool_>(object)) {
        return object.cast<bool>();
    }
    if (py::isinstance<py::int_>(object)) {
        const auto number = object.cast<long long>();
        if (number < INT32_MIN || number > INT32_MAX) {
            throw py::value_error("descriptor integers are signed 32-bit");
        }
        return static_cast<std::int32_t>(number);
    }
    if (py::isinstance<py::float_>(object)) {
        return object.cast<double>();
    }
    if (py::isinstance<py::str>(object)) {
        return object.cast<std::string>();
    }
    if (py::isinstance(object, types.attr("UnitFloat"))) {
        const auto unitName = object.attr("unit").cast<std::string>();
        for (const auto& [unit, name] : unitNames) {
            if (unitName == name) {
                return PSDUnitFloat{unit, object.attr("value").cast<double>()};
            }
        }
        throw py::value_error("unknown unit '" + unitName + "'");
    }
    if (py::isinstance(object, types.attr("Enumerated"))) {
        return Enumerated(identifierFromPython(object.attr("type"), types),
                          identifierFromPython(object.attr("value"), types));
    }
    if (py::isinstance<py::dict>(object)) {
        return descriptorFromPython(object, types, depth + 1);
    }
    if (py::isinstance<py::bytes>(object) || py::isinstance<py::bytearray>(object)) {
        return fromBytesLike(object);
    }
    if (py::isinstance<py::list>(object) || py::isinstance<py::tuple>(object)) {
        PSDDescriptorPropertyValue::List list;
        for (const auto& item : object) {
            list.push_back(valueFromPython(item, types, depth + 1));
        }
        return list;
    }
    throw py::type_error("a descriptor value cannot be of type " +
                         py::str(object.get_type()).cast<std::string>());
}

std::shared_ptr<PSDDescriptor> descriptorFromPython(const py::handle& object, const py::module_& types,
                                                    int depth)
{
    auto descriptor = std::make_shared<PSDDescriptor>();
    if (py::hasattr(object, "class_id")) {
        descriptor->name = object.attr("name").cast<std::string>();
        descriptor->classID = identifierFromPython(object.attr("class_id"), types);
    }
    for (const auto& [key, value] : py::reinterpret_borrow<py::dict>(object)) {
        descriptor->set(identifierFromPython(key, types), valueFromPython(value, types, depth));
    }
    return descriptor;
}

} // namespace

void bindDescriptors(py::module_& module)
{
    module.def(
        "read_descriptor",
        [](const py::object& data) {
            const auto bytes = fromBytesLike(data);
            PSDDescriptor descriptor;
            PSDScanner scanner(bytes);
            descriptor.read(scanner, false);
            return toPython(descriptor, pythonTypes(), 0);
        },
        py::arg("data"),
        "Reads a top-level descriptor (version word 16 first) from the start of data; returns a "
        "psdkit.Descriptor. Raises PSDError for malformed bytes.");
    module.def(
        "write_descriptor",
        [](const py::object& descriptor) {
            if (!py::isinstance<py::dict>(descriptor)) {
                throw py::type_error("write_descriptor takes a psdkit.Descriptor (or a dict)");
            }
            return toBytes(descriptorFromPython(descriptor, pythonTypes(), 0)->data());
        },
        py::arg("descriptor"),
        "The bytes of a top-level descriptor (version word 16 first). A plain dict is written with the "
        "class ID Code('null'). Raises PSDError for values the format cannot hold.");
}

} // namespace psdkit::python
