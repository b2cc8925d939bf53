#pragma once
// The pieces of the psdkit Python module, each defined in its own file and called once from the
// module's initialiser in Module.cpp.
#include <cstdint>
#include <memory>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "psdkit/layers/PSDLayerWrapper.hpp"
#include "psdkit/platform/PropertyValue.hpp"
#include "psdkit/platform/image/PixelBuffer.hpp"

namespace psdkit::python {

namespace py = pybind11;

/// Registers the translation of library exceptions into psdkit.PSDError and its subclasses.
void registerErrors(py::module_& module);
/// Binds psdkit.Document and the functions that open documents.
void bindDocument(py::module_& module);
/// Binds psdkit.Layer.
void bindLayer(py::module_& module);
/// Binds the descriptor functions (read_descriptor, write_descriptor).
void bindDescriptors(py::module_& module);
/// Binds psdkit.set_host, the host identity that document properties are filed under.
void bindHostApplication(py::module_& module);

/// A property dictionary as a Python dict: values dict, list, int, float, bool, str, bytes,
/// datetime (UTC) and psdkit.Code for four-character codes.
py::dict propertiesToPython(const PropertyDictionary& properties);
/// The reverse of propertiesToPython (tuples are taken as lists, bytearray and memoryview as
/// bytes; a datetime must carry its time zone). Throws py::type_error or py::value_error.
PropertyDictionary propertiesFromPython(const py::handle& object);

/// The pixels of `buffer` as a numpy array: (h, w, 4) RGBA for colour buffers, (h, w) for grey
/// ones; dtype uint8, uint16 or float32 by the sample type. 16- and 32-bit buffers are shared
/// without a copy (the array keeps the buffer alive and writing to it changes the pixels); 8-bit
/// colour buffers are stored ARGB and are converted into a new array. None for a null buffer.
py::object arrayFromImage(const std::shared_ptr<image::PixelBufferType>& buffer);

/// The pixels of `buffer` as arrayFromImage gives them, but handed over without a copy also for
/// 8-bit colour buffers, whose bytes are reordered to RGBA in place: the caller must drop every
/// other reference to the buffer (the layer's included), since its bytes are no longer ARGB.
/// An 8-bit buffer that someone else still shares is copied instead.
py::object arrayTakingImage(std::shared_ptr<image::PixelBufferType> buffer);

/// The content of an 8-bit layer as a new (h, w, 4) RGBA uint8 array, written by the library in
/// that order on every core with the GIL released: an image still pending (decoding 'on_demand')
/// is decoded straight into the array and the layer keeps nothing; a decoded one is copied. None
/// when the layer has no content image. Throws what decoding the layer throws.
py::object rgbaArrayFromLayer(const PSDLayerWrapper& layer);

/// A new pixel buffer of bit depth `depth` (8, 16, 32) holding the pixels of `array`: colour
/// (h, w, 4) RGBA or (h, w, 3) RGB (made opaque) when `grey` is false, (h, w) when it is true.
/// The array's dtype must be the depth's (uint8, uint16, float32). Throws py::type_error or
/// py::value_error.
std::shared_ptr<image::PixelBufferType> imageFromArray(const py::handle& array, std::int64_t depth,
                                                       bool grey);

} // namespace psdkit::python
