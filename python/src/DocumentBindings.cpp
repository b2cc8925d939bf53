// psdkit.Document and psdkit.open: reading, the document's fields, building and saving.
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <pybind11/stl.h>

#include "Bindings.hpp"
#include "Conversions.hpp"

#include "psdkit/document/PSDWrapper.hpp"
#include "psdkit/render/PSDRenderer.hpp"

namespace psdkit::python {

namespace {

using Document = PSDWrapper;

PSDReadOptions readOptions(bool keepUnknownBlocks, const std::string& decoding, unsigned threads)
{
    PSDReadOptions options;
    options.keepUnknownBlocks = keepUnknownBlocks;
    options.threadCount = threads;
    if (decoding == "eager") {
        options.imageDecoding = PSDImageDecoding::eager;
    } else if (decoding == "on_demand") {
        options.imageDecoding = PSDImageDecoding::onDemand;
    } else if (decoding == "never") {
        options.imageDecoding = PSDImageDecoding::never;
    } else {
        throw py::value_error("decoding is 'eager', 'on_demand' or 'never'");
    }
    return options;
}

// Metadata from an XMP packet. ImageMetadata reads whole files only, so the packet is put into
// the smallest file that carries it: a 1 x 1 header, no colour mode data, the one XMP resource.
ImageMetadata metadataFromXMP(std::span<const std::uint8_t> packet)
{
    constexpr std::uint16_t xmpResource = 1060;
    std::vector<std::uint8_t> file;
    auto append16 = [&](std::uint32_t v) {
        file.insert(file.end(), {std::uint8_t(v >> 8), std::uint8_t(v)});
    };
    auto append32 = [&](std::uint32_t v) {
        append16(v >> 16);
        append16(v & 0xffff);
    };
    const auto padded = static_cast<std::uint32_t>(packet.size() + packet.size() % 2);
    file.insert(file.end(), {'8', 'B', 'P', 'S', 0, 1, 0, 0, 0, 0, 0, 0, 0, 3});
    append32(1);           // height
    append32(1);           // width
    append16(8);           // depth
    append16(3);           // RGB
    append32(0);           // colour mode data
    append32(12 + padded); // resources: signature, id, empty padded name, length, data
    file.insert(file.end(), {'8', 'B', 'I', 'M'});
    append16(xmpResource);
    append16(0);
    append32(static_cast<std::uint32_t>(packet.size()));
    file.insert(file.end(), packet.begin(), packet.end());
    if (packet.size() % 2 != 0) {
        file.push_back(0); // data padded to an even length
    }
    append32(0); // layer and mask information
    return ImageMetadata::fromFile(file);
}

// Raises OSError for `path` from errno (captured by the caller).
[[noreturn]] void raiseOSError(int error, const std::string& path)
{
    errno = error;
    PyErr_SetFromErrnoWithFilename(PyExc_OSError, path.c_str());
    throw py::error_already_set();
}

// The file at `path` mapped read-only, for the document to share: nothing is copied, and pages
// the reading never touches (pixels read with decoding 'never') are never loaded. The mapping
// goes with the last view of it.
PSDSharedBytes mapFile(const std::string& path)
{
    int error = 0;
    PSDSharedBytes bytes;
    {
        py::gil_scoped_release release;
        const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        if (descriptor < 0 || ::fstat(descriptor, &status) != 0) {
            error = errno;
        } else if (S_ISDIR(status.st_mode)) {
            error = EISDIR;
        } else if (status.st_size > 0) {
            const auto size = static_cast<std::size_t>(status.st_size);
            void* address = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
            if (address == MAP_FAILED) {
                error = errno;
            } else {
                std::shared_ptr<const void> owner(
                    address, [size](const void* a) { ::munmap(const_cast<void*>(a), size); });
                bytes = PSDSharedBytes(std::move(owner), {static_cast<const std::uint8_t*>(address), size});
            }
        }
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }
    if (error != 0) {
        raiseOSError(error, path);
    }
    return bytes;
}

// A Python `bytes` object as bytes the document may share: they cannot change, and the object is
// kept alive (its reference dropped under the GIL) as long as the document refers to them.
PSDSharedBytes shareBytesObject(const py::bytes& object)
{
    const std::string_view view(PyBytes_AS_STRING(object.ptr()),
                                static_cast<std::size_t>(PyBytes_GET_SIZE(object.ptr())));
    std::shared_ptr<const void> owner(new py::object(object), [](const void* keeper) {
        if (Py_IsInitialized() != 0) {
            py::gil_scoped_acquire gil;
            delete static_cast<const py::object*>(keeper);
        }
    });
    return {std::move(owner), {reinterpret_cast<const std::uint8_t*>(view.data()), view.size()}};
}

void writeFile(const std::string& path, std::span<const std::uint8_t> bytes)
{
    int error = 0;
    {
        py::gil_scoped_release release;
        std::FILE* file = std::fopen(path.c_str(), "wb");
        if (!file) {
            error = errno;
        } else {
            if (std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size()) {
                error = errno != 0 ? errno : EIO;
            }
            if (std::fclose(file) != 0 && error == 0) {
                error = errno;
            }
        }
    }
    if (error != 0) {
        raiseOSError(error, path);
    }
}

std::unique_ptr<Document> openDocument(const py::object& source, bool keepUnknownBlocks,
                                       const std::string& decoding, unsigned threads)
{
    const auto options = readOptions(keepUnknownBlocks, decoding, threads);
    if (py::isinstance<py::bytes>(source)) {
        const auto bytes = shareBytesObject(py::reinterpret_borrow<py::bytes>(source));
        py::gil_scoped_release release;
        return std::make_unique<Document>(bytes, options);
    }
    if (PyObject_CheckBuffer(source.ptr())) {
        // bytearray, memoryview: bytes that may change later, read in place; the document copies
        // what it keeps.
        const py::buffer_info info = py::reinterpret_borrow<py::buffer>(source).request();
        const std::span<const std::uint8_t> bytes(static_cast<const std::uint8_t*>(info.ptr),
                                                  static_cast<std::size_t>(info.size * info.itemsize));
        py::gil_scoped_release release;
        return std::make_unique<Document>(bytes, options);
    }
    const auto bytes = mapFile(py::module_::import("os").attr("fspath")(source).cast<std::string>());
    py::gil_scoped_release release;
    return std::make_unique<Document>(bytes, options);
}

// The merged image saved with the document: the caller's array, else the composite the file
// carried (when it still fits the canvas), else a transparent canvas.
// RENDER: once the compositor lands (src/psdkit/render/), a document without a fitting stored
// composite gets the rendered one here instead of a transparent canvas.
std::shared_ptr<image::PixelBufferType> compositeForSaving(const Document& document,
                                                           const py::object& composite)
{
    const image::IntegralSize canvas{document.imageWidth, document.imageHeight};
    if (!composite.is_none()) {
        auto image = imageFromArray(composite, document.bitDepth, false);
        if (!(image->size() == canvas)) {
            throw py::value_error("the composite must have the document's size (height, width, 4)");
        }
        return image;
    }
    py::gil_scoped_release release;
    return document.compositeImageOrBlank();
}

std::vector<std::uint8_t> serialize(Document& document, const py::object& composite)
{
    const auto image = compositeForSaving(document, composite);
    py::gil_scoped_release release;
    return document.serializedRepresentationWithCompositeImage(image.get());
}

std::shared_ptr<PSDLayerWrapper> addLayer(Document& document, const std::string& name,
                                          const py::object& pixels, std::int64_t left, std::int64_t top,
                                          double opacity, const std::string& blendMode, bool visible,
                                          const py::object& mask)
{
    auto layer = std::make_shared<PSDLayerWrapper>(document.bitDepth);
    layer->name = name;
    layer->opacity = opacity;
    layer->visible = visible;
    layer->blendMode = toCode(blendMode);
    layer->contentsRect = PSDMacRect(top, left, top, left);
    layer->maskRect = PSDMacRect(top, left, top, left);
    auto pyLayer = py::cast(layer);
    pyLayer.attr("pixels") = pixels;
    if (!mask.is_none()) {
        pyLayer.attr("mask") = mask;
    }
    document.addLayerWrapper(layer);
    return layer;
}

// A read-write attribute that is the tuple of two members, such as (horizontal, vertical).
template <typename T>
void pairProperty(py::class_<Document>& cls, const char* name, T Document::*first, T Document::*second,
                  const char* doc)
{
    cls.def_property(
        name, [first, second](const Document& d) { return py::make_tuple(d.*first, d.*second); },
        [first, second](Document& d, const std::pair<T, T>& value) { std::tie(d.*first, d.*second) = value; },
        doc);
}

void bindFields(py::class_<Document>& cls)
{
    cls.def_readwrite("width", &Document::imageWidth, "Canvas width in pixels.");
    cls.def_readwrite("height", &Document::imageHeight, "Canvas height in pixels.");
    cls.def_readonly("depth", &Document::bitDepth, "Bits per sample: 8, 16 or 32.");
    cls.def_readwrite("channels", &Document::numberOfChannels,
                      "Channel count of the composite, from the header.");
    cls.def_readwrite("is_psb", &Document::bigFile,
                      "The big-document variant (PSB); saving writes that variant.");
    pairProperty(cls, "resolution", &Document::hRes, &Document::vRes,
                 "(horizontal, vertical) resolution, in the units of resolution_units.");
    pairProperty(cls, "resolution_units", &Document::hResUnit, &Document::vResUnit,
                 "Units of the resolution: 1 pixels per inch, 2 pixels per centimetre.");
    pairProperty(cls, "size_units", &Document::widthUnit, &Document::heightUnit,
                 "Units the width and height are shown in, as stored: 1 inches, 2 cm, 3 points, 4 picas, "
                 "5 columns.");
    cls.def_property_readonly(
        "color_mode", [](const Document& d) { return d.colorMode == PSDColorMode::rgb ? "rgb" : "other"; },
        "Colour mode from the header; 'rgb' for every document psdkit reads.");
    cls.def_readwrite("enable_layer_effects", &Document::enableLayerEffects,
                      "Whether layer effects are shown.");
    cls.def_readwrite("global_light_angle", &Document::globalLightAngle,
                      "Angle of the global light, degrees.");
    cls.def_readwrite("global_light_altitude", &Document::globalLightAltitude,
                      "Altitude of the global light, degrees.");
    cls.def_readwrite(
        "layers", &Document::layers,
        "The layers in file order, bottom first, flat: a 'group' layer opens a group (it lies above "
        "its members) and a 'sectionDivider' layer closes it. Assigning a list replaces them; the "
        "list returned is a copy, the layers in it are shared. See tree and walk() for the tree.");
    cls.def_property(
        "image_resources",
        [](const Document& d) {
            py::list list;
            for (const auto& block : d.imageResources) {
                list.append(py::make_tuple(block.identifier, block.name, toBytes(block.data)));
            }
            return list;
        },
        [](Document& d, const py::iterable& list) {
            std::vector<PSDImageResourceBlock> blocks;
            for (const auto& item : list) {
                const auto entry = item.cast<py::tuple>();
                blocks.push_back(
                    {entry[0].cast<std::int64_t>(), entry[1].cast<std::string>(), fromBytesLike(entry[2])});
            }
            d.imageResources = std::move(blocks);
        },
        "Image resources kept raw, in file order, as (identifier, name, data) tuples.");
    cls.def_property(
        "tagged_blocks",
        [](const Document& d) {
            py::dict blocks;
            for (const auto& [key, data] : d.additionalLayerAndMaskInfo) {
                blocks[py::str(key.rawValue())] = toBytes(data);
            }
            return blocks;
        },
        [](Document& d, const py::dict& blocks) {
            d.additionalLayerAndMaskInfo = {};
            for (const auto& [key, value] : blocks) {
                d.additionalLayerAndMaskInfo.insertOrAssign(toCode(key.cast<std::string>()),
                                                            fromBytesLike(value));
            }
        },
        "Document-level tagged blocks to be saved, {key: bytes}; reading leaves it empty.");
    cls.def_property(
        "uninterpreted_blocks", [](const Document& d) { return rawBlocksToList(d.uninterpretedBlocks); },
        [](Document& d, const py::iterable& blocks) { d.uninterpretedBlocks = rawBlocksFromList(blocks); },
        "Document-level blocks kept whole with keep_unknown_blocks=True: (signature, key, data, "
        "long_length).");
    cls.def_property(
        "xmp",
        [](const Document& d) -> py::object {
            const auto packet = d.metadata ? d.metadata->xmpData() : std::nullopt;
            return packet ? py::object(toBytes(*packet)) : py::object(py::none());
        },
        [](Document& d, const py::object& packet) {
            if (packet.is_none()) {
                d.metadata.reset();
                return;
            }
            const auto bytes = fromBytesLike(packet);
            if (bytes.size() > std::numeric_limits<std::uint32_t>::max() - 64) {
                throw py::value_error("an XMP packet must be smaller than 4 GiB");
            }
            auto metadata = metadataFromXMP(bytes);
            if (metadata.empty()) {
                throw py::value_error("not an XMP packet with properties psdkit can read");
            }
            d.metadata = std::move(metadata);
        },
        "The document's metadata as one XMP packet (UTF-8 bytes; EXIF and IPTC data of the file "
        "converted into it), or None when it has none. Setting parses the packet (ValueError when it "
        "holds no property); None removes the metadata. Saving writes it back with the resolution and "
        "format properties set.");
    cls.def_property_readonly(
        "metadata",
        [](const Document& d) {
            py::dict properties;
            if (d.metadata) {
                for (const auto& [key, value] : d.metadata->properties()) {
                    properties[py::str(key)] = py::str(value);
                }
            }
            return properties;
        },
        "The metadata's properties as {key: text} for reading, keys such as 'Xmp.dc.title' (empty when "
        "there is none). Change the metadata through xmp.");
    cls.def_property(
        "properties", [](const Document& d) { return propertiesToPython(d.propertiesDictionary); },
        [](Document& d, const py::handle& p) { d.propertiesDictionary = propertiesFromPython(p); },
        "The program's own properties of the document, a dict with str keys (values: dict, list, int, "
        "float, bool, str, bytes, datetime, psdkit.Code), stored in the file under the bundle identifier "
        "given to psdkit.set_host (read and saved only once one is set). A new dict on every read.");
    cls.def_property(
        "icc_profile",
        [](const Document& d) -> py::object {
            const auto data = d.colorSpace.iccData();
            return data ? py::object(toBytes(*data)) : py::object(py::none());
        },
        [](Document& d, const py::object& data) {
            if (data.is_none()) {
                d.colorSpace = ColorSpace::deviceRGB();
                return;
            }
            auto space = ColorSpace::fromICCData(fromBytesLike(data));
            if (!space) {
                throw py::value_error("not an ICC profile psdkit can use");
            }
            d.colorSpace = std::move(*space);
        },
        "The embedded ICC profile's bytes, or None for device RGB. Setting None removes the profile.");
}

void bindImages(py::class_<Document>& cls)
{
    cls.def(
        "composite",
        [](const Document& d) {
            std::shared_ptr<image::PixelBufferType> image;
            {
                py::gil_scoped_release release;
                image = d.compositeImage();
            }
            return arrayFromImage(image);
        },
        "The merged image stored in the file, (height, width, 4) RGBA, decoded anew on every call; None "
        "when the file has too few channels or they cannot be decoded.");
    cls.def_property_readonly(
        "alpha_channels",
        [](const Document& d) {
            py::list list;
            if (d.alphaChannels) {
                for (const auto& channel : *d.alphaChannels) {
                    py::object name =
                        channel->name ? py::object(py::str(*channel->name)) : py::object(py::none());
                    list.append(py::make_tuple(name, arrayFromImage(channel->image)));
                }
            }
            return list;
        },
        "Extra channels of the composite as (name, array of shape (height, width)) tuples; name may be "
        "None.");
    cls.def(
        "add_alpha_channel",
        [](Document& d, const py::object& name, const py::object& pixels) {
            auto channel = std::make_shared<PSDAlphaChannel>();
            if (!name.is_none()) {
                channel->name = name.cast<std::string>();
            }
            channel->image = imageFromArray(pixels, d.bitDepth, true);
            d.addAlphaChannel(std::move(channel));
        },
        py::arg("name"), py::arg("pixels"), "Appends an alpha channel: pixels of shape (height, width).");
    cls.def(
        "render",
        [](const Document& d, double scale, const py::object& region, unsigned threads) {
            PSDRenderOptions options;
            options.scale = scale;
            options.threadCount = threads;
            if (!region.is_none()) {
                const auto r =
                    region.cast<std::tuple<std::int64_t, std::int64_t, std::int64_t, std::int64_t>>();
                options.region =
                    image::IntegralRect{std::get<0>(r), std::get<1>(r), std::get<2>(r), std::get<3>(r)};
            }
            std::shared_ptr<image::PixelBufferType> image;
            try {
                py::gil_scoped_release release;
                image = renderDocument(d, options).image;
            } catch (const PSDRenderException& e) {
                throw py::value_error(e.what());
            }
            return arrayFromImage(image);
        },
        py::arg("scale") = 1.0, py::arg("region") = py::none(), py::arg("threads") = 0,
        "The layers rendered by the library's compositor (blend modes, masks, clipping, groups, fill and "
        "adjustment layers; not layer effects), (height, width, 4) RGBA of the document's dtype, "
        "transparent where no layer covers the canvas. region: (x, y, width, height) in document pixels; "
        "scale: output pixels per document pixel, above 0 and at most 16. Raises ValueError for refused "
        "options; the GIL is released while rendering.");
}

} // namespace

void bindDocument(py::module_& module)
{
    py::class_<Document> cls(module, "Document",
                             "One PSD or PSB document in memory. Owns its layers (shared with Python as "
                             "psdkit.Layer objects). Use from one thread at a time.");
    cls.def(py::init([](std::int64_t width, std::int64_t height, std::int64_t depth) {
                if (depth != 8 && depth != 16 && depth != 32) {
                    throw py::value_error("depth must be 8, 16 or 32");
                }
                auto document = std::make_unique<Document>();
                document->imageWidth = width;
                document->imageHeight = height;
                document->bitDepth = depth;
                document->numberOfChannels = 4;
                return document;
            }),
            py::arg("width"), py::arg("height"), py::arg("depth") = 8,
            "A new empty RGB document of the given size and depth (8, 16 or 32).");
    bindFields(cls);
    bindImages(cls);
    cls.def("add_layer", &addLayer, py::arg("name"), py::arg("pixels") = py::none(), py::arg("left") = 0,
            py::arg("top") = 0, py::arg("opacity") = 1.0, py::arg("blend_mode") = "norm",
            py::arg("visible") = true, py::arg("mask") = py::none(),
            "Appends a layer on top: pixels (h, w, 4) or (h, w, 3) of the document's dtype placed at "
            "(left, top), optional mask (h, w) at the same place. Returns the new Layer.");
    cls.def("add_divider", &Document::addSectionDivider,
            "Appends a group-closing layer ('sectionDivider'). A group is a divider, its members, then a "
            "layer of kind 'group' above them (layers are listed bottom first).");
    cls.def(
        "to_bytes",
        [](Document& d, const py::object& composite) {
            const auto bytes = serialize(d, composite);
            return toBytes(bytes);
        },
        py::arg("composite") = py::none(),
        "The bytes of a complete file. composite: the merged image to store, (height, width, 4) of the "
        "document's dtype; by default the file's own composite, or a transparent canvas for new documents. "
        "Raises PSDError (case 'writeParameterError', ...) for values that do not fit the format.");
    cls.def(
        "save",
        [](Document& d, const py::object& path, const py::object& composite) {
            const auto bytes = serialize(d, composite);
            writeFile(py::module_::import("os").attr("fspath")(path).cast<std::string>(), bytes);
        },
        py::arg("path"), py::arg("composite") = py::none(),
        "Writes to_bytes(composite) to the file at path.");

    module.def("open", &openDocument, py::arg("source"), py::kw_only(),
               py::arg("keep_unknown_blocks") = false, py::arg("decoding") = "eager", py::arg("threads") = 0u,
               R"(Reads a PSD or PSB document.

source: a path (str or os.PathLike; the file is mapped and read as needed, so it must not be
shortened while the document is in use), or the file's bytes (a bytes object is shared with the
document; bytearray and memoryview are read in place and what the document keeps is copied). keep_unknown_blocks: keep the tagged blocks psdkit does not interpret and save
them back. decoding: when layer pixels are decoded: 'eager' (while reading), 'on_demand' (on first
access; the fast way to read every layer's pixels into numpy) or 'never' (structure only, for listing). threads: decoding threads, 0 for one per core.
Raises PSDError (with .case) for malformed or unsupported files, OSError when the file cannot be
read. The GIL is released while reading.)");
}

} // namespace psdkit::python
