// Library exceptions as Python exceptions. The classes live in psdkit/errors.py; this file only
// translates: PSDException -> PSDError, the image core's ImageException -> ImageError, the
// platform's PlatformException -> PlatformError (both subclasses of PSDError).
#include <exception>
#include <string>

#include "Bindings.hpp"

#include "psdkit/core/PSDError.hpp"
#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/image/ImageError.hpp"

namespace psdkit::python {

namespace {

// Raises errors.<className>(message, case, code, detail, reason) as the pending Python error.
void raise(const char* className, const std::string& message, std::string_view caseName, int code,
           const std::string& detail, const std::optional<std::string>& reason)
{
    auto errors = py::module_::import("psdkit.errors");
    py::object reasonObject = reason ? py::object(py::str(*reason)) : py::object(py::none());
    py::object error = errors.attr(className)(message, py::str(caseName.data(), caseName.size()), code,
                                              detail, reasonObject);
    PyErr_SetObject(error.get_type().ptr(), error.ptr());
}

} // namespace

void registerErrors(py::module_& /*module*/)
{
    py::register_exception_translator([](std::exception_ptr pointer) {
        if (!pointer) {
            return;
        }
        try {
            std::rethrow_exception(pointer);
        } catch (const PSDException& e) {
            raise("PSDError", e.what(), e.error().name(), static_cast<int>(e.error().code()), e.detail(),
                  e.error().userInfoValue(PSDErrorTextKey::failureReason));
        } catch (const image::ImageException& e) {
            raise("ImageError", e.what(), image::name(e.error()), e.code().value(), {}, std::nullopt);
        } catch (const PlatformException& e) {
            raise("PlatformError", e.what(), e.code().message(), e.code().value(), {}, std::nullopt);
        }
    });
}

} // namespace psdkit::python
