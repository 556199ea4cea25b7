#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace glintmark::decoder {

/// Reads numbers from an untrusted file. Bytes beyond its end read as 0, so that a parser can never
/// read outside. So a parser checks lengths only where the result depends on them.
class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    std::size_t size() const { return bytes_.size(); }

    bool has(std::size_t offset, std::size_t length) const {
        return offset <= bytes_.size() && length <= bytes_.size() - offset;
    }

    std::uint8_t byte(std::size_t offset) const {
        return offset < bytes_.size() ? bytes_[offset] : std::uint8_t{0};
    }

    std::uint32_t little16(std::size_t offset) const {
        return byte(offset) | static_cast<std::uint32_t>(byte(offset + 1)) << 8U;
    }
    std::uint32_t little32(std::size_t offset) const {
        return little16(offset) | little16(offset + 2) << 16U;
    }
    std::uint32_t big32(std::size_t offset) const {
        return static_cast<std::uint32_t>(byte(offset)) << 24U |
               static_cast<std::uint32_t>(byte(offset + 1)) << 16U |
               static_cast<std::uint32_t>(byte(offset + 2)) << 8U | byte(offset + 3);
    }

    bool matches(std::size_t offset, std::string_view text) const {
        if (!has(offset, text.size())) {
            return false;
        }
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (byte(offset + i) != static_cast<std::uint8_t>(text[i])) {
                return false;
            }
        }
        return true;
    }

    /// At most `length` bytes from `offset` on; fewer, or none, if the file ends earlier.
    std::span<const std::uint8_t> part(std::size_t offset, std::size_t length) const {
        if (offset > bytes_.size()) {
            return {};
        }
        return bytes_.subspan(offset, std::min(length, bytes_.size() - offset));
    }
    std::span<const std::uint8_t> from(std::size_t offset) const { return part(offset, size()); }

private:
    std::span<const std::uint8_t> bytes_;
};

}  // namespace glintmark::decoder
