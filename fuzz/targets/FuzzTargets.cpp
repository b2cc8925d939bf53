#include "targets/FuzzTargets.hpp"

#include <array>
#include <exception>
#include <new>
#include <typeinfo>

#include "psdkit/core/PSDError.hpp"
#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"
#include "psdkit/platform/support/HostApplication.hpp"

namespace psdkit::fuzz {
namespace {

constexpr std::array<Target, 6> allTargets = {{
    {"document", runDocument},
    {"descriptor", runDescriptor},
    {"channels", runChannels},
    {"propertylist", runPropertyList},
    {"metadata", runMetadata},
    {"render", runRender},
}};

std::string platformErrorName(PlatformErrorCode code)
{
    switch (code) {
    case PlatformErrorCode::propertyListParse:
        return "propertyListParse";
    case PlatformErrorCode::propertyListUnsupportedValue:
        return "propertyListUnsupportedValue";
    case PlatformErrorCode::propertyListWrite:
        return "propertyListWrite";
    case PlatformErrorCode::metadataPrepare:
        return "metadataPrepare";
    case PlatformErrorCode::metadataSerialize:
        return "metadataSerialize";
    }
    return std::to_string(static_cast<int>(code));
}

} // namespace

std::span<const Target> targets() noexcept
{
    return allTargets;
}

const Target* findTarget(std::string_view name) noexcept
{
    for (const Target& target : allTargets) {
        if (target.name == name) {
            return &target;
        }
    }
    return nullptr;
}

void prepareLibrary()
{
    static const bool prepared = [] {
        setDiagnosticsSink({});
        HostApplication host = HostApplication::current();
        host.bundleIdentifier = "org.psdkit.fuzz";
        HostApplication::setCurrent(host);
        return true;
    }();
    (void)prepared;
}

Outcome outcomeOfCurrentException()
{
    Outcome outcome;
    try {
        throw;
    } catch (const PSDException& e) {
        outcome.result = "PSDError." + std::string(e.error().name());
    } catch (const image::ImageException& e) {
        outcome.result = "ImageError." + std::string(image::name(e.error()));
    } catch (const PlatformException& e) {
        outcome.result = "PlatformError." + platformErrorName(e.error());
    } catch (const std::bad_alloc&) {
        outcome.result = "std::bad_alloc";
        outcome.violation = "an allocation failed: a size was taken from the input unchecked";
    } catch (const std::exception& e) {
        outcome.result = typeid(e).name();
        outcome.violation = "an exception the library never throws: " + outcome.result + ": " + e.what();
    } catch (...) {
        outcome.result = "unknown exception";
        outcome.violation = "an exception of no standard type";
    }
    return outcome;
}

Outcome violation(std::string_view what, const Outcome& cause)
{
    Outcome outcome;
    outcome.result = cause.result;
    std::string text(what);
    if (cause.violation) {
        text += ": " + *cause.violation;
    } else if (cause.result != "ok") {
        text += ": " + cause.result;
    }
    outcome.violation = std::move(text);
    return outcome;
}

} // namespace psdkit::fuzz
