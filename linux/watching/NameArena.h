#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

namespace glintmark::platform {

/// Keeps many file names in little memory: a name takes one byte more than its length. Names never
/// move. The memory of a dropped name is freed only with the whole arena.
class NameArena {
public:
    using Offset = std::uint32_t;

    static constexpr Offset maximumOffset = (Offset{1} << 30U) - 1;  ///< Owners store 30 bits.

    /// `name` has at most NAME_MAX (255) bytes. Returns 0, which is no name's offset, when the
    /// arena is full.
    Offset add(std::string_view name);
    std::string_view at(Offset offset) const;

    /// Notes that the name at `offset` is no longer needed.
    void drop(Offset offset) { droppedBytes_ += at(offset).size() + 1; }

    /// True if more than half of the memory holds dropped names, so that copying the others to a
    /// new arena saves memory.
    bool isWasteful() const;

private:
    std::vector<std::unique_ptr<char[]>> chunks_;
    std::size_t filled_ = chunkBytes;  // of the last chunk
    std::size_t droppedBytes_ = 0;

    static constexpr std::size_t chunkBytes = std::size_t{64} * 1024;
};

}  // namespace glintmark::platform
