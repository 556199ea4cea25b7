#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "decoder/FormatDecoders.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

namespace {

struct CloseGIF {
    void operator()(GifFileType* gif) const { DGifCloseFile(gif, nullptr); }
};
using GIFFile = std::unique_ptr<GifFileType, CloseGIF>;

int readBytes(GifFileType* gif, GifByteType* destination, int wanted) {
    auto& bytes = *static_cast<std::span<const std::uint8_t>*>(gif->UserData);
    const std::size_t length = std::min(bytes.size(), static_cast<std::size_t>(wanted));
    std::memcpy(destination, bytes.data(), length);
    bytes = bytes.subspan(length);
    return static_cast<int>(length);
}

/// Reads one extension; a graphic control extension sets the transparent index.
bool readExtension(GifFileType* gif, int& transparentIndex) {
    int code = 0;
    GifByteType* block = nullptr;
    if (DGifGetExtension(gif, &code, &block) == GIF_ERROR) {
        return false;
    }
    while (block != nullptr) {
        GraphicsControlBlock control{};
        // The first byte of a block is its length.
        if (code == GRAPHICS_EXT_FUNC_CODE &&
            DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
            transparentIndex = control.TransparentColor;
        }
        if (DGifGetExtensionNext(gif, &block) == GIF_ERROR) {
            return false;
        }
    }
    return true;
}

/// Reads up to the end of the first frame's header. Leaves `transparentIndex` alone if the frame
/// has no transparent colour.
bool readToFirstFrame(GifFileType* gif, int& transparentIndex) {
    for (;;) {
        GifRecordType type = UNDEFINED_RECORD_TYPE;
        if (DGifGetRecordType(gif, &type) == GIF_ERROR) {
            return false;
        }
        if (type == IMAGE_DESC_RECORD_TYPE) {
            return DGifGetImageDesc(gif) == GIF_OK;
        }
        if (type != EXTENSION_RECORD_TYPE || !readExtension(gif, transparentIndex)) {
            return false;
        }
    }
}

// GIF89a specification, appendix E: the order of the rows of an interlaced frame.
std::vector<int> rowOrder(int height, bool interlaced) {
    struct Pass {
        int first;
        int step;
    };
    static constexpr Pass straight[] = {{0, 1}};
    static constexpr Pass interlace[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
    std::vector<int> order;
    const std::span<const Pass> passes =
        interlaced ? std::span<const Pass>(interlace) : std::span<const Pass>(straight);
    for (const auto& [first, step] : passes) {
        for (int y = first; y < height; y += step) {
            order.push_back(y);
        }
    }
    return order;
}

void drawRow(const std::vector<GifPixelType>& indices, const ColorMapObject& colours,
             int transparentIndex, std::uint8_t* rgba) {
    for (const GifPixelType index : indices) {
        // An index beyond the table is black.
        if (index != transparentIndex) {
            const GifColorType colour =
                index < colours.ColorCount ? colours.Colors[index] : GifColorType{0, 0, 0};
            rgba[0] = colour.Red;
            rgba[1] = colour.Green;
            rgba[2] = colour.Blue;
            rgba[3] = 255;
        }
        rgba += 4;
    }
}

}  // namespace

std::optional<DecodedImage> decodeGIF(std::span<const std::uint8_t> file, PixelStore& pixels) {
    const GIFFile gif(DGifOpen(&file, readBytes, nullptr));
    if (!gif) {
        return std::nullopt;
    }
    int transparentIndex = NO_TRANSPARENT_COLOR;
    if (!readToFirstFrame(gif.get(), transparentIndex)) {
        return std::nullopt;
    }
    const GifImageDesc& frame = gif->Image;
    const ColorMapObject* colours = frame.ColorMap != nullptr ? frame.ColorMap : gif->SColorMap;
    if (colours == nullptr || frame.Width < 1 || frame.Height < 1) {
        return std::nullopt;
    }

    // The canvas is larger than the logical screen if the first frame does not fit into it. Pixels
    // outside the frame are transparent.
    const auto canvas = pixels.allocate(std::max(gif->SWidth, frame.Left + frame.Width),
                                        std::max(gif->SHeight, frame.Top + frame.Height));
    if (!canvas) {
        return std::nullopt;
    }
    std::vector<GifPixelType> indices(static_cast<std::size_t>(frame.Width));
    for (const int y : rowOrder(frame.Height, frame.Interlace)) {
        if (DGifGetLine(gif.get(), indices.data(), frame.Width) == GIF_ERROR) {
            return std::nullopt;
        }
        drawRow(indices, *colours, transparentIndex,
                canvas->row(frame.Top + y) + std::ptrdiff_t{4} * frame.Left);
    }
    const bool covers = frame.Width == canvas->width() && frame.Height == canvas->height();
    return DecodedImage{canvas->width(), canvas->height(),
                        transparentIndex != NO_TRANSPARENT_COLOR || !covers};
}

}  // namespace glintmark::decoder
