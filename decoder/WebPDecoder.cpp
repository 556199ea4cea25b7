#include <webp/decode.h>
#include <webp/demux.h>

#include <memory>

#include "decoder/ColourProfile.h"
#include "decoder/FormatDecoders.h"
#include "decoder/Orientation.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

namespace {

struct DeleteDemuxer {
    void operator()(WebPDemuxer* demuxer) const { WebPDemuxDelete(demuxer); }
};

/// A frame of the file. The destructor releases it.
struct Frame {
    Frame() = default;
    ~Frame() { WebPDemuxReleaseIterator(&iterator); }
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    WebPIterator iterator{};
};

/// A chunk beside the frames. Empty if the file has none of that name.
class Chunk {
public:
    Chunk(const WebPDemuxer* demuxer, const char* name) {
        WebPDemuxGetChunk(demuxer, name, 1, &iterator_);
    }
    ~Chunk() { WebPDemuxReleaseChunkIterator(&iterator_); }
    Chunk(const Chunk&) = delete;
    Chunk& operator=(const Chunk&) = delete;

    std::span<const std::uint8_t> bytes() const {
        return {iterator_.chunk.bytes, iterator_.chunk.size};
    }

private:
    WebPChunkIterator iterator_{};
};

bool fits(const WebPIterator& frame, const Canvas& canvas) {
    return frame.x_offset >= 0 && frame.y_offset >= 0 && frame.width > 0 && frame.height > 0 &&
           frame.width <= canvas.width() - frame.x_offset &&
           frame.height <= canvas.height() - frame.y_offset;
}

bool decodeInto(const WebPIterator& frame, const Canvas& canvas) {
    WebPDecoderConfig config;
    if (WebPInitDecoderConfig(&config) == 0) {
        return false;
    }
    const std::size_t left = static_cast<std::size_t>(frame.x_offset) * 4;
    const std::size_t top = static_cast<std::size_t>(frame.y_offset) * canvas.bytesPerRow();
    const std::span<std::uint8_t> target = canvas.pixels().subspan(top + left);
    config.output.colorspace = MODE_RGBA;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = target.data();
    config.output.u.RGBA.stride = static_cast<int>(canvas.bytesPerRow());
    config.output.u.RGBA.size = target.size();
    const bool decoded =
        WebPDecode(frame.fragment.bytes, frame.fragment.size, &config) == VP8_STATUS_OK;
    WebPFreeDecBuffer(&config.output);
    return decoded;
}

void makeOpaque(const WebPIterator& frame, const Canvas& canvas) {
    for (int y = 0; y < frame.height; ++y) {
        std::uint8_t* row =
            canvas.row(frame.y_offset + y) + static_cast<std::ptrdiff_t>(frame.x_offset) * 4;
        for (int x = 0; x < frame.width; ++x) {
            row[static_cast<std::ptrdiff_t>(x) * 4 + 3] = 255;
        }
    }
}

}  // namespace

std::optional<DecodedImage> decodeWebP(std::span<const std::uint8_t> file, PixelStore& pixels) {
    const WebPData data{file.data(), file.size()};
    const std::unique_ptr<WebPDemuxer, DeleteDemuxer> demuxer(WebPDemux(&data));
    Frame frame;
    if (!demuxer || WebPDemuxGetFrame(demuxer.get(), 1, &frame.iterator) == 0) {
        return std::nullopt;  // also when the file ends early
    }
    const auto canvas = pixels.allocate(WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH),
                                        WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT));
    if (!canvas || !fits(frame.iterator, *canvas)) {
        return std::nullopt;
    }
    if (!decodeInto(frame.iterator, *canvas)) {
        return std::nullopt;
    }
    // A file may store alpha values and say that they have no meaning.
    const bool fileHasAlpha =
        (WebPDemuxGetI(demuxer.get(), WEBP_FF_FORMAT_FLAGS) & ALPHA_FLAG) != 0;
    const bool frameHasAlpha = fileHasAlpha && frame.iterator.has_alpha != 0;
    if (!frameHasAlpha) {
        makeOpaque(frame.iterator, *canvas);
    }
    convertFromProfile(Chunk(demuxer.get(), "ICCP").bytes(), *canvas);
    const bool covers =
        frame.iterator.width == canvas->width() && frame.iterator.height == canvas->height();
    return upright(*canvas, orientationIn(Chunk(demuxer.get(), "EXIF").bytes()),
                   frameHasAlpha || !covers);
}

}  // namespace glintmark::decoder
