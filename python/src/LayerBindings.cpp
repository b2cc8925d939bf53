// psdkit.Layer: one layer record, its images and kept blocks.
#include <array>
#include <string>

#include <pybind11/stl.h>

#include "Bindings.hpp"
#include "Conversions.hpp"

#include "psdkit/layers/PSDLayerWrapper.hpp"

namespace psdkit::python {

namespace {

using Layer = PSDLayerWrapper;
using LayerClass = py::class_<Layer, std::shared_ptr<Layer>>;

constexpr std::array adjustmentKinds = {
    PSDAdjustmentLayerType::solidColor,     PSDAdjustmentLayerType::gradientFill,
    PSDAdjustmentLayerType::patternFill,    PSDAdjustmentLayerType::brightnessContrast,
    PSDAdjustmentLayerType::levels,         PSDAdjustmentLayerType::curves,
    PSDAdjustmentLayerType::exposure,       PSDAdjustmentLayerType::vibrance,
    PSDAdjustmentLayerType::hueSaturation,  PSDAdjustmentLayerType::colorBalance,
    PSDAdjustmentLayerType::blackAndWhite,  PSDAdjustmentLayerType::photoFilter,
    PSDAdjustmentLayerType::channelMixer,   PSDAdjustmentLayerType::colorLookup,
    PSDAdjustmentLayerType::invert,         PSDAdjustmentLayerType::posterize,
    PSDAdjustmentLayerType::threshold,      PSDAdjustmentLayerType::gradientMap,
    PSDAdjustmentLayerType::selectiveColor,
};

// The kind named as PSDLayerType::description() writes it: "regular", "group", ...,
// "adjustmentLayer(levels)".
PSDLayerType kindFromText(const std::string& text)
{
    for (auto kind : {PSDLayerType::regular(), PSDLayerType::group(), PSDLayerType::sectionDivider(),
                      PSDLayerType::sceneGroup(), PSDLayerType::artboard()}) {
        if (kind.description() == text) {
            return kind;
        }
    }
    for (auto adjustment : adjustmentKinds) {
        const auto kind = PSDLayerType::adjustmentLayer(adjustment);
        if (kind.description() == text) {
            return kind;
        }
    }
    throw py::value_error("unknown layer kind '" + text + "'");
}

// A plain read-write attribute over a member, with a docstring.
template <typename T> void field(LayerClass& cls, const char* name, T Layer::*member, const char* doc)
{
    cls.def_readwrite(name, member, doc);
}

void bindRecordFields(LayerClass& cls)
{
    field(cls, "name", &Layer::name, "The layer's name.");
    field(cls, "layer_id", &Layer::layerID,
          "Identifier within the document; 0 and duplicates are renumbered on saving.");
    field(cls, "color_label", &Layer::colorLabel, "Index of the colour label.");
    cls.def_property(
        "kind", [](const Layer& l) { return l.type().description(); },
        [](Layer& l, const std::string& text) { l.setType(kindFromText(text)); },
        "The layer's kind: 'regular', 'group', 'sectionDivider' (closes a group), 'sceneGroup', 'artboard' "
        "or 'adjustmentLayer(<kind>)' such as 'adjustmentLayer(levels)'. Setting a kind other than "
        "'regular' or 'sceneGroup' also sets pixel_data_irrelevant.");
    cls.def_property(
        "subtype", [](const Layer& l) { return l.subtype.description(); },
        [](Layer& l, const std::string& text) { l.subtype = kindFromText(text); },
        "Refinement of a group: 'sceneGroup' or 'regular'.");
    field(cls, "selected", &Layer::selected, "In the document's selection.");
    field(cls, "targeted", &Layer::targeted, "The document's target layer (used on saving).");
    field(cls, "expanded", &Layer::expanded, "For a group: shown open.");
    cls.def_property(
        "bbox", [](const Layer& l) { return toBounds(l.contentsRect); },
        [](Layer& l, const py::tuple& b) { l.contentsRect = fromBounds(b); },
        "Bounds of the pixels in document coordinates, (left, top, right, bottom). Setting the pixels "
        "keeps left and top and sets the size.");
    cls.def_property(
        "blend_mode", [](const Layer& l) { return l.blendMode.rawValue(); },
        [](Layer& l, const std::string& key) { l.blendMode = toCode(key); },
        "Blend-mode key, four characters: 'norm', 'mul ', 'scrn', 'pass' (a group passing through), ...");
    field(cls, "opacity", &Layer::opacity, "Opacity of the whole layer, 0.0 to 1.0 (stored as a byte).");
    field(cls, "fill_opacity", &Layer::fillOpacity, "Opacity of the fill, 0.0 to 1.0 (stored as a byte).");
    field(cls, "clipping", &Layer::clipping, "Clipped to the layer below.");
    field(cls, "lock_flags", &Layer::lockFlags, "Lock bits (unsigned 32-bit); bit 0: transparency.");
    field(cls, "visible", &Layer::visible, "Shown.");
    field(cls, "pixel_data_irrelevant", &Layer::pixelDataIrrelevantToAppearanceOfDocument,
          "The pixels do not contribute to the document's appearance (groups, adjustment and fill layers).");
    cls.def_property(
        "blending_ranges",
        [](const Layer& l) -> py::object {
            return l.layerBlendingRanges ? py::object(toBytes(*l.layerBlendingRanges))
                                         : py::object(py::none());
        },
        [](Layer& l, const py::object& value) {
            if (value.is_none()) {
                l.layerBlendingRanges.reset();
            } else {
                l.layerBlendingRanges = fromBytesLike(value);
            }
        },
        "The record's blending ranges, raw bytes, or None.");
}

void bindMaskFields(LayerClass& cls)
{
    field(cls, "has_mask", &Layer::hasLayerMask,
          "The record carries mask data (the mask fields are saved only when set).");
    cls.def_property(
        "mask_bbox", [](const Layer& l) { return toBounds(l.maskRect); },
        [](Layer& l, const py::tuple& b) { l.maskRect = fromBounds(b); },
        "Bounds of the user mask, (left, top, right, bottom).");
    field(cls, "mask_default_color", &Layer::maskDefaultColor, "Mask value outside mask_bbox, 0.0 to 1.0.");
    field(cls, "mask_relative_to_layer", &Layer::maskIsPositionedRelativeToLayer,
          "Mask positioned relative to the layer.");
    field(cls, "mask_disabled", &Layer::maskDisabled, "The mask is switched off.");
    field(cls, "mask_from_rendering", &Layer::maskCameFromRenderingOtherData,
          "The mask was rendered from other data.");
    field(cls, "has_user_mask_density", &Layer::maskHasUserMaskDensity, "user_mask_density is saved.");
    field(cls, "user_mask_density", &Layer::userMaskDensity, "User mask density, 0.0 to 1.0.");
    field(cls, "has_user_mask_feather", &Layer::maskHasUserMaskFeather, "user_mask_feather is saved.");
    field(cls, "user_mask_feather", &Layer::userMaskFeather, "User mask feather.");
    field(cls, "has_vector_mask_density", &Layer::maskHasVectorMaskDensity, "vector_mask_density is saved.");
    field(cls, "vector_mask_density", &Layer::vectorMaskDensity, "Vector mask density, 0.0 to 1.0.");
    field(cls, "has_vector_mask_feather", &Layer::maskHasVectorMaskFeather, "vector_mask_feather is saved.");
    field(cls, "vector_mask_feather", &Layer::vectorMaskFeather, "Vector mask feather.");
    field(cls, "has_real_flags", &Layer::hasRealFlags,
          "The record carries the real mask's flags, colour and bounds.");
    field(cls, "real_mask_relative_to_layer", &Layer::realMaskIsPositionedRelativeToLayer,
          "Real mask flag bit 0.");
    field(cls, "real_mask_disabled", &Layer::realMaskDisabled, "Real mask flag bit 1.");
    field(cls, "real_mask_from_rendering", &Layer::realMaskCameFromRenderingOtherData,
          "Real mask flag bit 3.");
    field(cls, "real_mask_default_color", &Layer::realMaskDefaultColor,
          "Real mask value outside its bounds, 0.0 to 1.0.");
    cls.def_property(
        "real_mask_bbox", [](const Layer& l) { return toBounds(l.realMaskRect); },
        [](Layer& l, const py::tuple& b) { l.realMaskRect = fromBounds(b); },
        "Bounds of the real mask, (left, top, right, bottom).");
}

void bindImages(LayerClass& cls)
{
    cls.def_property(
        "pixels",
        [](const Layer& l) {
            return l.bitDepth == 8 ? rgbaArrayFromLayer(l) : arrayFromImage(l.contentImage());
        },
        [](Layer& l, const py::object& array) {
            if (array.is_none()) {
                l.setContentImage(nullptr);
                l.contentsRect = PSDMacRect(l.contentsRect.top, l.contentsRect.left, l.contentsRect.top,
                                            l.contentsRect.left);
                return;
            }
            auto image = imageFromArray(array, l.bitDepth, false);
            const auto size = image->size();
            l.contentsRect = PSDMacRect(l.contentsRect.top, l.contentsRect.left,
                                        l.contentsRect.top + size.height, l.contentsRect.left + size.width);
            l.setContentImage(std::move(image));
        },
        "The layer's pixels, shape (height, width, 4) RGBA, dtype uint8/uint16/float32 by depth; None when "
        "the layer has none. Reading 16- and 32-bit pixels shares the layer's buffer (writing into the "
        "array changes the layer). 8-bit pixels come as a new RGBA array on every read; in a document "
        "opened with decoding='on_demand' they are decoded straight into it on every core and the layer "
        "keeps no copy (the fastest way to get every layer into numpy). Setting takes (h, w, 4) or "
        "(h, w, 3) of the depth's dtype, copies it and resizes bbox from its top-left.");
    cls.def_property(
        "mask", [](const Layer& l) { return arrayFromImage(l.maskImage()); },
        [](Layer& l, const py::object& array) {
            if (array.is_none()) {
                l.setMaskImage(nullptr);
                l.hasLayerMask = false;
                return;
            }
            auto image = imageFromArray(array, l.bitDepth, true);
            const auto size = image->size();
            l.maskRect = PSDMacRect(l.maskRect.top, l.maskRect.left, l.maskRect.top + size.height,
                                    l.maskRect.left + size.width);
            l.hasLayerMask = true;
            l.setMaskImage(std::move(image));
        },
        "The user mask, shape (height, width), shared like 16-/32-bit pixels; None when absent. Setting "
        "copies the array, sets has_mask and resizes mask_bbox from its top-left; None removes the mask.");
    cls.def(
        "take_pixels",
        [](Layer& l) {
            if (l.bitDepth == 8 && l.hasPendingImages()) {
                auto array = rgbaArrayFromLayer(l);
                l.setContentImage(nullptr);
                return array;
            }
            auto image = l.contentImage();
            l.setContentImage(nullptr);
            return arrayTakingImage(std::move(image));
        },
        "Moves the pixels out of the layer: the same array as `pixels`, but never a copy of a decoded "
        "image (8-bit pixels are reordered to RGBA in place; pending ones are decoded straight into the "
        "array), and the layer is left without pixels (`pixels` is None; bbox is kept). Saving the "
        "document afterwards writes the layer empty.");
    cls.def_property_readonly(
        "depth", [](const Layer& l) { return l.bitDepth; }, "Bits per sample: 8, 16 or 32.");
}

void bindBlocks(LayerClass& cls)
{
    cls.def_property(
        "tagged_blocks",
        [](const Layer& l) {
            py::dict blocks;
            for (const auto& [key, data] : l.taggedData) {
                blocks[py::str(key.rawValue())] = toBytes(data);
            }
            return blocks;
        },
        [](Layer& l, const py::dict& blocks) {
            PSDTaggedData data;
            for (const auto& [key, value] : blocks) {
                data.insertOrAssign(toCode(key.cast<std::string>()), fromBytesLike(value));
            }
            l.taggedData = std::move(data);
        },
        "Kept raw blocks (fill and adjustment settings, effects, ...) as {key: bytes}, in file order. "
        "A new dict on every read; assign a dict to change them.");
    cls.def_property(
        "uninterpreted_blocks", [](const Layer& l) { return rawBlocksToList(l.uninterpretedBlocks); },
        [](Layer& l, const py::iterable& blocks) { l.uninterpretedBlocks = rawBlocksFromList(blocks); },
        "Blocks kept whole when the file was opened with keep_unknown_blocks=True, as a list of "
        "(signature, key, data, long_length) tuples in file order; saved after the generated blocks.");
    cls.def_property(
        "properties", [](const Layer& l) { return propertiesToPython(l.propertiesDictionary()); },
        [](Layer& l, const py::handle& properties) {
            l.setPropertiesDictionary(propertiesFromPython(properties));
        },
        "The program's own properties of the layer, a dict with str keys (values: dict, list, int, float, "
        "bool, str, bytes, datetime, psdkit.Code). A new dict on every read; assign one to change them. "
        "Reading fills them from the document's properties (its 'PSD Layers' list, matched by layer ID); "
        "a file stores only the document's properties. A 'PSD Blend Mode' holding a psdkit.Code also "
        "sets blend_mode.");
}

} // namespace

void bindLayer(py::module_& module)
{
    LayerClass cls(module, "Layer",
                   "One layer of a document: the values of its record, its pixels and mask, and its kept "
                   "blocks. Layers are shared with their document: a change is seen by the document.");
    cls.def(py::init<std::int64_t>(), py::arg("depth") = 8,
            "A layer with every field at its default; depth (8, 16, 32) must be the document's.");
    bindRecordFields(cls);
    bindMaskFields(cls);
    bindImages(cls);
    bindBlocks(cls);
    cls.def("__repr__", [](const Layer& l) {
        const auto& r = l.contentsRect;
        return "<psdkit.Layer '" + l.name + "' " + l.type().description() + " (" + std::to_string(r.left) +
               ", " + std::to_string(r.top) + ", " + std::to_string(r.right) + ", " +
               std::to_string(r.bottom) + ")>";
    });
}

} // namespace psdkit::python
