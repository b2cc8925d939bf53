#pragma once
// A small structural walk of a PSD/PSB file that finds the tagged blocks of every layer record, so
// that the descriptor tests can read the descriptors real files keep there. It follows the file's
// lengths only as far as needed and knows nothing of what the blocks mean.
#include <cstdint>
#include <cstdlib>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "psdkit/core/PSDScanner.hpp"

namespace psdkit::testing {

struct LayerBlock {
    int recordIndex; // layer record in file order, section dividers included
    std::string key; // "SoCo", "lfx2", …
    std::span<const std::uint8_t> data;
};

struct WalkedFile {
    int colorMode = 0;
    std::vector<LayerBlock> blocks;
};

class LayerBlockWalker {
  public:
    /// Walks `file` (borrowed); throws PSDException when its structure does not hold.
    static WalkedFile walk(std::span<const std::uint8_t> file)
    {
        PSDScanner s(file);
        WalkedFile result;
        s.skip(4);
        const bool big = s.scanUInt16() == 2;
        s.skip(6 + 2 + 4 + 4 + 2);
        result.colorMode = static_cast<int>(s.scanUInt16());
        s.skip(s.scanUInt32()); // colour mode data
        s.skip(s.scanUInt32()); // image resources
        const std::int64_t sectionLength = big ? s.scanInt64() : s.scanUInt32();
        const std::int64_t sectionEnd = s.offset() + sectionLength;
        if (sectionLength == 0) {
            return result;
        }
        const std::int64_t layerInfoLength = big ? s.scanInt64() : s.scanUInt32();
        const std::int64_t layerInfoEnd = s.offset() + layerInfoLength;
        if (layerInfoLength > 0) {
            walkLayerInfo(s, big, result.blocks);
        }
        s.seek(layerInfoEnd);
        if (s.offset() + 4 > sectionEnd) {
            return result; // the section ends with the layer info
        }
        s.skip(s.scanUInt32()); // global layer mask
        while (s.offset() + 12 <= sectionEnd) {
            const std::string signature = s.scanFourCharCode().rawValue();
            if (signature != "8BIM" && signature != "8B64") {
                break;
            }
            const std::string key = s.scanFourCharCode().rawValue();
            const std::int64_t length =
                big && longLengthKeys().contains(key) ? s.scanInt64() : s.scanUInt32();
            if (key == "Lr16" || key == "Lr32") {
                walkLayerInfo(s, big, result.blocks);
                break;
            }
            s.skip((length + 3) / 4 * 4);
        }
        return result;
    }

  private:
    static const std::set<std::string>& longLengthKeys()
    {
        static const std::set<std::string> keys = {"LMsk", "Lr16", "Lr32", "Layr", "Mt16", "Mt32", "Mtrn",
                                                   "Alph", "FMsk", "lnk2", "FEid", "FXid", "PxSD"};
        return keys;
    }

    static void walkLayerInfo(PSDScanner& s, bool big, std::vector<LayerBlock>& blocks)
    {
        const std::int64_t count = std::abs(s.scanInt16());
        for (int record = 0; record < count; ++record) {
            s.skip(16);
            const std::int64_t channels = s.scanUInt16();
            s.skip(channels * (big ? 10 : 6));
            s.skip(4 + 4 + 4);
            const std::int64_t extraLength = s.scanUInt32();
            const std::int64_t extraEnd = s.offset() + extraLength;
            s.skip(s.scanUInt32()); // mask data
            s.skip(s.scanUInt32()); // blending ranges
            const std::int64_t nameLength = s.scanUInt8();
            s.skip((1 + nameLength + 3) / 4 * 4 - 1);
            while (s.offset() + 12 <= extraEnd) {
                s.skip(4);
                const std::string key = s.scanFourCharCode().rawValue();
                const std::int64_t length =
                    big && longLengthKeys().contains(key) ? s.scanInt64() : s.scanUInt32();
                blocks.push_back({record, key, s.scanBytes(length)});
            }
            s.seek(extraEnd);
        }
    }
};

} // namespace psdkit::testing
