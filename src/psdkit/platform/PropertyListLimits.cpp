#include "psdkit/platform/PropertyListLimits.hpp"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>
#include <vector>

namespace psdkit::detail {
namespace {

std::uint64_t readBigEndian(const std::uint8_t* bytes, std::size_t width) noexcept
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) {
        value = (value << 8) | bytes[i];
    }
    return value;
}

bool matchesAt(std::span<const std::uint8_t> data, std::size_t at, std::string_view text) noexcept
{
    return data.size() - at >= text.size() && std::memcmp(data.data() + at, text.data(), text.size()) == 0;
}

// The layout of a binary property list: objects from byte 8, then the offset table, then a
// 32-byte trailer.
struct BinaryLayout {
    std::span<const std::uint8_t> data;
    std::size_t offsetWidth = 0;
    std::size_t referenceWidth = 0;
    std::uint64_t objectCount = 0;
    std::uint64_t topObject = 0;
    std::size_t tableOffset = 0;

    bool read() noexcept
    {
        constexpr std::size_t kHeader = 8;
        constexpr std::size_t kTrailer = 32;
        if (data.size() < kHeader + kTrailer) {
            return false;
        }
        const std::uint8_t* trailer = data.data() + data.size() - kTrailer;
        offsetWidth = trailer[6];
        referenceWidth = trailer[7];
        objectCount = readBigEndian(trailer + 8, 8);
        topObject = readBigEndian(trailer + 16, 8);
        const std::uint64_t table = readBigEndian(trailer + 24, 8);
        const std::size_t tableEnd = data.size() - kTrailer;
        if (offsetWidth < 1 || offsetWidth > 8 || referenceWidth < 1 || referenceWidth > 8) {
            return false;
        }
        if (table < kHeader || table > tableEnd || objectCount == 0 || topObject >= objectCount) {
            return false;
        }
        tableOffset = static_cast<std::size_t>(table);
        return objectCount <= (tableEnd - tableOffset) / offsetWidth;
    }

    // Offset of an object, or 0 when it lies outside the object area.
    std::size_t offsetOf(std::uint64_t object) const noexcept
    {
        const std::uint64_t offset = readBigEndian(
            data.data() + tableOffset + static_cast<std::size_t>(object) * offsetWidth, offsetWidth);
        return offset >= 8 && offset < tableOffset ? static_cast<std::size_t>(offset) : 0;
    }

    // The references a container object holds, as [first, first + count × width); count 0 for
    // objects that are not containers. False when the object is malformed.
    bool references(std::uint64_t object, std::size_t& first, std::uint64_t& count) const noexcept
    {
        const std::size_t offset = offsetOf(object);
        if (offset == 0) {
            return false;
        }
        const std::uint8_t marker = data[offset];
        const unsigned kind = marker >> 4;
        count = 0;
        first = offset + 1;
        const bool isArrayOrSet = kind == 0xA || kind == 0xB || kind == 0xC;
        const bool isDictionary = kind == 0xD;
        if (!isArrayOrSet && !isDictionary) {
            return true;
        }
        std::uint64_t entries = marker & 0x0Fu;
        if (entries == 0x0F) {
            if (first >= tableOffset || (data[first] >> 4) != 0x1) {
                return false;
            }
            const std::size_t width = std::size_t{1} << (data[first] & 0x0Fu);
            if (width > 8 || tableOffset - first - 1 < width) {
                return false;
            }
            entries = readBigEndian(data.data() + first + 1, width);
            first += 1 + width;
        }
        const std::uint64_t available = (tableOffset - first) / referenceWidth;
        if (entries > available || (isDictionary && entries > available / 2)) {
            return false;
        }
        count = isDictionary ? entries * 2 : entries;
        return true;
    }

    // False when the object is a string (ASCII or UTF-16) holding a zero code unit. Strings whose
    // bytes are not all present are left to the backend, which refuses them.
    bool stringHasNoNul(std::uint64_t object) const noexcept
    {
        if (object >= objectCount) {
            return true;
        }
        const std::size_t offset = offsetOf(object);
        if (offset == 0) {
            return true;
        }
        const unsigned kind = data[offset] >> 4;
        if (kind != 0x5 && kind != 0x6) {
            return true;
        }
        std::size_t first = offset + 1;
        std::uint64_t length = data[offset] & 0x0Fu;
        if (length == 0x0F) {
            if (first >= tableOffset || (data[first] >> 4) != 0x1) {
                return true;
            }
            const std::size_t width = std::size_t{1} << (data[first] & 0x0Fu);
            if (width > 8 || tableOffset - first - 1 < width) {
                return true;
            }
            length = readBigEndian(data.data() + first + 1, width);
            first += 1 + width;
        }
        const std::size_t unit = kind == 0x6 ? 2 : 1;
        if (length > (tableOffset - first) / unit) {
            return true;
        }
        for (std::size_t at = first; at < first + static_cast<std::size_t>(length) * unit; at += unit) {
            if (data[at] == 0 && (unit == 1 || data[at + 1] == 0)) {
                return false;
            }
        }
        return true;
    }

    std::uint64_t referenceAt(std::size_t first, std::uint64_t index) const noexcept
    {
        return readBigEndian(data.data() + first + static_cast<std::size_t>(index) * referenceWidth,
                             referenceWidth);
    }
};

} // namespace

std::uint64_t maxPropertyListValues(std::size_t byteCount) noexcept
{
    return std::max<std::uint64_t>(std::uint64_t{1} << 20, std::uint64_t{64} * byteCount);
}

bool xmlPropertyListIsBounded(std::span<const std::uint8_t> xml) noexcept
{
    std::size_t depth = 0;
    for (std::size_t i = 0; i < xml.size(); ++i) {
        if (xml[i] != '<') {
            continue;
        }
        const bool closing = matchesAt(xml, i + 1, "/");
        const std::size_t name = i + (closing ? 2 : 1);
        const bool container = matchesAt(xml, name, "array") || matchesAt(xml, name, "dict");
        if (!container) {
            continue;
        }
        if (closing) {
            depth -= depth > 0 ? 1 : 0;
            continue;
        }
        const auto close = std::find(xml.begin() + static_cast<std::ptrdiff_t>(name), xml.end(), '>');
        const bool selfClosing = close != xml.end() && *(close - 1) == '/';
        if (!selfClosing && ++depth > kMaxPropertyListDepth) {
            return false;
        }
    }
    return true;
}

bool binaryPropertyListIsBounded(std::span<const std::uint8_t> data) noexcept
{
    BinaryLayout layout{data};
    if (!layout.read()) {
        return false;
    }
    try {
        // Depth-first over the object graph with an explicit stack, counting how many values each
        // object expands into; a reference back to an object still on the stack is a cycle.
        enum class State : std::uint8_t { unvisited, onStack, done };
        const auto objectCount = static_cast<std::size_t>(layout.objectCount);
        std::vector<State> state(objectCount, State::unvisited);
        std::vector<std::uint64_t> expanded(objectCount, 0);
        struct Frame {
            std::uint64_t object;
            std::size_t first;
            std::uint64_t count;
            std::uint64_t next;
            std::uint64_t total;
        };
        const std::uint64_t budget = maxPropertyListValues(data.size());
        std::vector<Frame> stack;
        auto push = [&](std::uint64_t object) {
            Frame frame{object, 0, 0, 0, 1};
            if (stack.size() >= kMaxPropertyListDepth + 1 ||
                !layout.references(object, frame.first, frame.count)) {
                return false;
            }
            state[static_cast<std::size_t>(object)] = State::onStack;
            stack.push_back(frame);
            return true;
        };
        if (!push(layout.topObject)) {
            return false;
        }
        while (!stack.empty()) {
            Frame& frame = stack.back();
            if (frame.next == frame.count) {
                expanded[static_cast<std::size_t>(frame.object)] = frame.total;
                state[static_cast<std::size_t>(frame.object)] = State::done;
                const std::uint64_t total = frame.total;
                stack.pop_back();
                if (!stack.empty()) {
                    stack.back().total += total;
                    if (stack.back().total > budget) {
                        return false;
                    }
                }
                continue;
            }
            const std::uint64_t child = layout.referenceAt(frame.first, frame.next++);
            if (child >= layout.objectCount) {
                return false;
            }
            switch (state[static_cast<std::size_t>(child)]) {
            case State::onStack:
                return false;
            case State::done:
                frame.total += expanded[static_cast<std::size_t>(child)];
                if (frame.total > budget) {
                    return false;
                }
                break;
            case State::unvisited:
                if (!push(child)) {
                    return false;
                }
                break;
            }
        }
        return expanded[static_cast<std::size_t>(layout.topObject)] <= budget;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

bool propertyListKeysHaveNoNul(std::span<const std::uint8_t> data) noexcept
{
    constexpr std::string_view kBinaryMagic = "bplist00";
    if (!matchesAt(data, 0, kBinaryMagic)) {
        // NUL bytes after the text (a terminator some writers count in) are not part of it.
        std::size_t end = data.size();
        while (end > 0 && data[end - 1] == 0) {
            --end;
        }
        data = data.first(end);
        for (std::size_t i = 0; i < data.size(); ++i) {
            if (data[i] == 0) {
                return false;
            }
            if (data[i] != '&' || !matchesAt(data, i + 1, "#")) {
                continue;
            }
            // A character reference: &#digits; or &#xhexdigits;, of value zero?
            std::size_t at = i + 2;
            const bool hex = at < data.size() && (data[at] == 'x' || data[at] == 'X');
            at += hex ? 1 : 0;
            bool nonZero = false;
            const std::size_t digitsStart = at;
            while (at < data.size() && std::isxdigit(data[at]) != 0 && (hex || std::isdigit(data[at]) != 0)) {
                nonZero = nonZero || data[at] != '0';
                ++at;
            }
            if (at > digitsStart && !nonZero) {
                return false;
            }
        }
        return true;
    }
    BinaryLayout layout{data};
    if (!layout.read()) {
        return true; // malformed: refused elsewhere
    }
    for (std::uint64_t object = 0; object < layout.objectCount; ++object) {
        const std::size_t offset = layout.offsetOf(object);
        std::size_t first = 0;
        std::uint64_t count = 0;
        if (offset == 0 || (data[offset] >> 4) != 0xD || !layout.references(object, first, count)) {
            continue;
        }
        for (std::uint64_t key = 0; key < count / 2; ++key) {
            if (!layout.stringHasNoNul(layout.referenceAt(first, key))) {
                return false;
            }
        }
    }
    return true;
}

} // namespace psdkit::detail
