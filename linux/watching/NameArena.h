#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace glintmark::platform {

/// Keeps many file names in little memory: one byte more than each is long. Names stay where they
/// are; the room of one that is dropped comes back only with the whole arena.
class NameArena {
public:
    using Offset = std::uint32_t;

    static constexpr Offset maximumOffset = (Offset{1} << 30U) - 1;  ///< Owners pack offsets.

    /// `name` has at most 255 bytes, as NAME_MAX says. 0, which no name has, when the arena is
    /// full.
    Offset add(std::string_view name);
    std::string_view at(Offset offset) const;

    /// Notes that the name at `offset` is not needed any more.
    void drop(Offset offset) { droppedBytes_ += at(offset).size() + 1; }

    /// Whether so much has been dropped that a fresh arena is worth its copying.
    bool isWasteful() const;

private:
    std::vector<std::unique_ptr<char[]>> chunks_;
    std::size_t filled_ = chunkBytes;  // of the last chunk
    std::size_t droppedBytes_ = 0;

    static constexpr std::size_t chunkBytes = std::size_t{64} * 1024;
};

}  // namespace glintmark::platform
