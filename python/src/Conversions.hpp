#pragma once
// Small conversions shared by the document and layer bindings.
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include <pybind11/pybind11.h>

#include "psdkit/core/PSDFourCharCode.hpp"
#include "psdkit/core/PSDMacRect.hpp"
#include "psdkit/layers/PSDRawBlock.hpp"

namespace psdkit::python {

namespace py = pybind11;

/// Bytes as a Python bytes object (a copy).
inline py::bytes toBytes(std::span<const std::uint8_t> bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// A bytes-like Python object (bytes, bytearray, memoryview, contiguous array) as a byte vector.
inline std::vector<std::uint8_t> fromBytesLike(const py::handle& object)
{
    py::buffer buffer = py::reinterpret_borrow<py::buffer>(object);
    const py::buffer_info info = buffer.request();
    const auto* begin = static_cast<const std::uint8_t*>(info.ptr);
    const auto count = static_cast<std::size_t>(info.size * info.itemsize);
    return {begin, begin + count};
}

/// A rectangle as the tuple (left, top, right, bottom).
inline py::tuple toBounds(const PSDMacRect& rect)
{
    return py::make_tuple(rect.left, rect.top, rect.right, rect.bottom);
}

/// The tuple (left, top, right, bottom) as a rectangle.
inline PSDMacRect fromBounds(const py::tuple& bounds)
{
    if (bounds.size() != 4) {
        throw py::value_error("bounds are the tuple (left, top, right, bottom)");
    }
    return {bounds[1].cast<std::int64_t>(), bounds[0].cast<std::int64_t>(), bounds[3].cast<std::int64_t>(),
            bounds[2].cast<std::int64_t>()};
}

/// A four-character code from Python text. Throws PSDError(readParameterError) for other lengths.
inline PSDFourCharCode toCode(const std::string& text)
{
    return PSDFourCharCode(text);
}

/// Kept raw blocks as a list of (signature, key, data, long_length) tuples.
inline py::list rawBlocksToList(const std::vector<PSDRawBlock>& blocks)
{
    py::list list;
    for (const auto& block : blocks) {
        list.append(py::make_tuple(block.signature.rawValue(), block.key.rawValue(),
                                   toBytes(block.data.span()), block.longLength));
    }
    return list;
}

/// The reverse of rawBlocksToList. Throws py::value_error for items that are not 4-tuples.
inline std::vector<PSDRawBlock> rawBlocksFromList(const py::iterable& list)
{
    std::vector<PSDRawBlock> blocks;
    for (const auto& item : list) {
        const auto block = item.cast<py::tuple>();
        if (block.size() != 4) {
            throw py::value_error("a block is (signature, key, data, long_length)");
        }
        blocks.push_back({toCode(block[0].cast<std::string>()), toCode(block[1].cast<std::string>()),
                          block[3].cast<bool>(), PSDSharedBytes(fromBytesLike(block[2]))});
    }
    return blocks;
}

} // namespace psdkit::python
