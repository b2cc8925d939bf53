// The image resources a document writes: generated from its fields first, then every kept block.
#include <algorithm>

#include "psdkit/core/ImageResourceID.hpp"
#include "psdkit/core/PSDWriter.hpp"
#include "psdkit/document/PSDDocumentWriter.hpp"
#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/support/HostApplication.hpp"

namespace psdkit::detail {
namespace {

template <typename Body>
void writeResource(PSDWriter& writer, std::int64_t identifier, std::string_view name, Body&& body)
{
    writer.appendFourCharCode(PSDFourCharCode("8BIM"));
    writer.appendInt16(identifier);
    writer.appendPascalString(name, 2);
    writer.writePSDDataBlock(false, 2, false, std::forward<Body>(body));
}

std::string softwareNameAndVersion()
{
    const auto host = HostApplication::current();
    return host.softwareVersion.empty() ? host.softwareName : host.softwareName + " " + host.softwareVersion;
}

} // namespace

void writeImageResourceBlocks(PSDWriter& writer, PSDWrapper& doc, bool hasComposite,
                              bool compositeTransparency)
{
    writeResource(writer, ImageResourceID::resolutionInfo, "", [&](PSDWriter& w) {
        w.appendFixed32(doc.hRes);
        w.appendInt16(doc.hResUnit);
        w.appendInt16(doc.widthUnit);
        w.appendFixed32(doc.vRes);
        w.appendInt16(doc.vResUnit);
        w.appendInt16(doc.heightUnit);
    });
    writeResource(writer, 1006, "", [&](PSDWriter& w) {
        if (compositeTransparency) {
            w.appendPascalString("Transparency", 0);
        }
        if (doc.alphaChannels) {
            for (const auto& alpha : *doc.alphaChannels) {
                w.appendPascalString(alpha && alpha->name ? *alpha->name : std::string(), 0);
            }
        }
    });
    for (std::size_t i = 0; i < doc.layers.size(); ++i) {
        if (doc.layers[i]->targeted) {
            doc.targetLayerIndex = static_cast<std::int64_t>(i);
        }
    }
    writeResource(writer, ImageResourceID::layerStateInfo, "",
                  [&](PSDWriter& w) { w.appendInt16(doc.targetLayerIndex); });
    writeResource(writer, ImageResourceID::globalLightAngle, "",
                  [&](PSDWriter& w) { w.appendInt32(doc.globalLightAngle); });
    if (const auto profile = doc.colorSpace.iccData()) {
        writeResource(writer, ImageResourceID::iccProfile, "", [&](PSDWriter& w) { w.appendData(*profile); });
    }
    if (!doc.enableLayerEffects) {
        writeResource(writer, ImageResourceID::layerEffectsVisible, "",
                      [&](PSDWriter& w) { w.appendUInt8(0); });
    }
    writeResource(writer, 1044, "", [&](PSDWriter& w) { w.appendInt32(doc.minimumNewLayerID); });
    writeResource(writer, 1045, "", [&](PSDWriter& w) {
        if (compositeTransparency) {
            w.appendUnicodeString("Transparency", true, 0);
        }
        if (doc.alphaChannels) {
            for (const auto& alpha : *doc.alphaChannels) {
                w.appendUnicodeString(alpha && alpha->name ? *alpha->name : std::string(), true, 0);
            }
        }
    });
    writeResource(writer, ImageResourceID::globalLightAltitude, "",
                  [&](PSDWriter& w) { w.appendInt32(doc.globalLightAltitude); });
    const std::string software = softwareNameAndVersion();
    writeResource(writer, ImageResourceID::versionInfo, "", [&](PSDWriter& w) {
        w.appendUInt32(1);
        w.appendUInt8(hasComposite ? 1 : 0);
        w.appendUnicodeString(software, false, 0);
        w.appendUnicodeString(software, false, 0);
        w.appendUInt32(1);
    });
    // Whatever keeps the metadata from becoming a packet, the platform's errors included, is the
    // library's one case for it.
    std::optional<std::vector<std::uint8_t>> xmp;
    try {
        ImageMetadata exported = doc.metadata ? *doc.metadata : ImageMetadata();
        exported.prepareForExport(std::max(doc.hRes, doc.vRes), "com.adobe.photoshop-image");
        xmp = exported.xmpData();
    } catch (const PlatformException&) {
        throw PSDException(PSDError::writeUnableToCreateMetaData);
    }
    if (!xmp) {
        throw PSDException(PSDError::writeUnableToCreateMetaData);
    }
    writeResource(writer, ImageResourceID::xmp, "", [&](PSDWriter& w) { w.appendData(*xmp); });
    if (!doc.selectedLayerIDs.empty()) {
        writeResource(writer, ImageResourceID::layerSelectionIds, "", [&](PSDWriter& w) {
            w.appendUInt16(static_cast<std::int64_t>(doc.selectedLayerIDs.size()));
            for (const std::int64_t id : doc.selectedLayerIDs) {
                w.appendInt32(id);
            }
        });
    }
    for (const auto& block : doc.imageResources) {
        writeResource(writer, block.identifier, block.name, [&](PSDWriter& w) { w.appendData(block.data); });
    }
}

} // namespace psdkit::detail
