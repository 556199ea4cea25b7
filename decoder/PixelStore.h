#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace glintmark::decoder {

/// The RGBA pixels of one image, not multiplied by alpha, transparent until written. Refers to
/// memory of the `PixelStore` that made it.
class Canvas {
public:
    Canvas(int width, int height, std::span<std::uint8_t> pixels)
        : width_(width), height_(height), pixels_(pixels) {}

    int width() const { return width_; }
    int height() const { return height_; }
    std::size_t bytesPerRow() const;
    std::span<std::uint8_t> pixels() const { return pixels_; }
    std::uint8_t* row(int y) const { return &pixels_[static_cast<std::size_t>(y) * bytesPerRow()]; }

private:
    int width_;
    int height_;
    std::span<std::uint8_t> pixels_;
};

/// Gives decoders memory for pixels. Checks the limits on sizes, so that no decoder can forget
/// them.
class PixelStore {
public:
    virtual ~PixelStore() = default;

    /// Absent if the size is empty or beyond the limits, or if memory is missing. An earlier canvas
    /// becomes invalid.
    std::optional<Canvas> allocate(std::int64_t width, std::int64_t height);

private:
    /// `size` zeroed bytes, valid until the next call; empty if there is no memory.
    virtual std::span<std::uint8_t> provide(std::size_t size) = 0;
};

}  // namespace glintmark::decoder
