#pragma once
// ImageResourceID: the identifiers of the image resources the reader, the writer and the metadata
// service know by name. Internal: hosts see resources through PSDWrapper's fields.
#include <cstdint>

namespace psdkit::detail {

/// Image resource identifiers, as `ImageResourceID::xmp`; plain integers, so that they compare with
/// the identifier read from a file and serve as `case` labels.
struct ImageResourceID {
    enum : std::int16_t {
        // Read into the document and written back.
        resolutionInfo = 1005,
        alphaChannelNames = 1006,
        layerStateInfo = 1024, ///< the target layer index
        globalLightAngle = 1037,
        iccProfile = 1039,
        layerEffectsVisible = 1042,
        layerIdSeed = 1044,
        unicodeAlphaNames = 1045,
        globalLightAltitude = 1049,
        layerSelectionIds = 1069,
        // Dropped on reading (skipped, not kept in imageResources), each for its reason.
        obsoleteChannelInfo = 1000,       ///< obsolete: the header holds channels, size, depth and mode
        obsoleteIndexedColorTable = 1003, ///< obsolete: the colour mode data holds a colour table
        obsoleteDisplayInfo = 1007,       ///< obsolete: superseded by a newer display resource (kept raw)
        obsolete1020 = 1020,              ///< obsolete, with no content defined any more
        obsolete1023 = 1023,              ///< obsolete, with no content defined any more
        obsolete1027 = 1027,              ///< obsolete, with no content defined any more
        iptcNaa = 1028,                   ///< metadata: read by the metadata service, rewritten as XMP
        thumbnailOld = 1033,              ///< a thumbnail, stale once the document changes
        thumbnail = 1036,                 ///< a thumbnail, stale once the document changes
        obsoleteColorSamplers = 1038,     ///< obsolete: superseded by a newer samplers resource (kept raw)
        versionInfo = 1057,               ///< describes the writing program; the writer writes its own
        exif = 1058,                      ///< metadata: read by the metadata service, rewritten as XMP
        exif3 = 1059,                     ///< metadata: a second EXIF block, not interpreted
        xmp = 1060,                       ///< metadata: read by the metadata service, written from it
    };
};

} // namespace psdkit::detail
