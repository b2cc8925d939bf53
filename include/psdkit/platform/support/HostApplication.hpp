#pragma once
// What psdkit knows about the application it runs in. The host sets this once, early; the
// library reads it when it registers its error texts (display name), files the host's property
// list (bundle identifier) and names the writing software in a document's version information
// (software name and version).
#include "psdkit/Export.hpp"
#include <optional>
#include <string>

#include "psdkit/Version.hpp"

namespace psdkit {

/// The host application's identity, set once by the host (`setCurrent`). A plain value.
struct PSDKIT_EXPORT HostApplication {
    /// Reverse-domain identifier of the host, the key under which the document's host property
    /// list is stored. Absent: documents with a property list cannot be written
    /// (`writeParameterError`) and a stored list is not found on reading.
    std::optional<std::string> bundleIdentifier;
    /// Name shown to users in error texts. Absent: the texts use "Vispera".
    std::optional<std::string> displayName;
    /// Software name and version, written as the writer and reader of a document in its version
    /// information resource.
    std::string softwareName = "psdkit";
    /// Version written beside `softwareName`.
    std::string softwareVersion = PSDKIT_VERSION;

    /// The process-wide description of the host. Starts with the defaults above.
    [[nodiscard]] static HostApplication current();
    /// Replaces the process-wide description. Not synchronised with readers on other threads:
    /// call it before the library is used.
    static void setCurrent(HostApplication application);
};

} // namespace psdkit
