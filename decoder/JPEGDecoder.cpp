// jpeglib.h needs size_t and FILE declared before it.
#include <cstddef>
#include <cstdio>
// clang-format off
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include <csetjmp>
#include <cstdlib>
#include <memory>
#include <vector>

#include "decoder/ByteReader.h"
#include "decoder/ColourProfile.h"
#include "decoder/FormatDecoders.h"
#include "decoder/Orientation.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

namespace {

// Real progressive files have about ten scans. Each is a pass over the whole image.
constexpr int maximumScans = 100;

constexpr int exifMarker = JPEG_APP0 + 1;
constexpr int profileMarker = JPEG_APP0 + 2;
constexpr unsigned wholeMarker = 0xFFFF;

struct JPEGReader {
    JPEGReader() = default;
    ~JPEGReader() { jpeg_destroy_decompress(&jpeg); }
    JPEGReader(const JPEGReader&) = delete;
    JPEGReader& operator=(const JPEGReader&) = delete;

    jpeg_decompress_struct jpeg{};
    jpeg_error_mgr errors{};
    jpeg_progress_mgr progress{};
    std::jmp_buf leave{};
    bool ended = false;    // the bytes ran out
    bool starved = false;  // the library made up pixels because data was missing
    bool resumed = false;  // the data went on after that
};

JPEGReader& readerOf(j_common_ptr jpeg) { return *static_cast<JPEGReader*>(jpeg->client_data); }

// The library requires a jump: an exception would unwind its C frames.
[[noreturn]] void onError(j_common_ptr jpeg) { std::longjmp(readerOf(jpeg).leave, 1); }

void onMessage(j_common_ptr jpeg, int /*level*/) {
    if (jpeg->err->msg_code == JWRN_JPEG_EOF) {
        readerOf(jpeg).ended = true;
    }
    if (jpeg->err->msg_code == JWRN_HIT_MARKER) {
        readerOf(jpeg).starved = true;
        // The marker before which data are missing is the end mark, or else follows more data.
        readerOf(jpeg).resumed =
            readerOf(jpeg).resumed || readerOf(jpeg).jpeg.unread_marker != JPEG_EOI;
    }
}

void onProgress(j_common_ptr jpeg) {
    if (readerOf(jpeg).jpeg.input_scan_number > maximumScans) {
        onError(jpeg);
    }
}

// Another marker with the same number holds other metadata.
Orientation orientationOf(const jpeg_decompress_struct& jpeg) {
    for (const auto* marker = jpeg.marker_list; marker != nullptr; marker = marker->next) {
        if (ByteReader({marker->data, marker->data_length}).matches(0, "Exif")) {
            return orientationIn({marker->data, marker->data_length});
        }
    }
    return {};
}

bool isFourColour(J_COLOR_SPACE space) { return space == JCS_CMYK || space == JCS_YCCK; }

// The functions that call setjmp own nothing, so a jump out of the library skips no destructor. The
// source in memory never suspends the library, so its calls succeed or jump.

bool readHeader(JPEGReader& reader, std::span<const std::uint8_t> file) {
    jpeg_decompress_struct& jpeg = reader.jpeg;
    jpeg.err = jpeg_std_error(&reader.errors);
    reader.errors.error_exit = onError;
    reader.errors.emit_message = onMessage;
    jpeg.client_data = &reader;
    if (setjmp(reader.leave) != 0) {
        return false;
    }
    jpeg_create_decompress(&jpeg);
    reader.progress.progress_monitor = onProgress;
    jpeg.progress = &reader.progress;
    jpeg_mem_src(&jpeg, file.data(), file.size());
    jpeg_save_markers(&jpeg, exifMarker, wholeMarker);
    jpeg_save_markers(&jpeg, profileMarker, wholeMarker);
    jpeg_read_header(&jpeg, TRUE);
    jpeg.out_color_space = isFourColour(jpeg.jpeg_color_space) ? JCS_CMYK : JCS_EXT_RGBA;
    return true;
}

// Files with Adobe's marker store the four colours inverted, as light instead of ink (Adobe
// technical note 5116). Files without it store them as ink.
void convertFromFourColours(const std::uint8_t* cmyk, bool inverted, std::uint8_t* rgba,
                            int width) {
    const unsigned flip = inverted ? 0 : 255;
    for (int x = 0; x < width; ++x, cmyk += 4, rgba += 4) {
        const unsigned black = cmyk[3] ^ flip;
        for (int c = 0; c < 3; ++c) {
            rgba[c] = static_cast<std::uint8_t>(((cmyk[c] ^ flip) * black + 127) / 255);
        }
        rgba[3] = 255;
    }
}

bool readRows(JPEGReader& reader, const Canvas& canvas, std::uint8_t* fourColours) {
    jpeg_decompress_struct& jpeg = reader.jpeg;
    if (setjmp(reader.leave) != 0) {
        return false;
    }
    jpeg_start_decompress(&jpeg);
    while (jpeg.output_scanline < jpeg.output_height) {
        std::uint8_t* destination = canvas.row(static_cast<int>(jpeg.output_scanline));
        std::uint8_t* row = fourColours != nullptr ? fourColours : destination;
        jpeg_read_scanlines(&jpeg, &row, 1);
        if (fourColours != nullptr) {
            convertFromFourColours(row, jpeg.saw_Adobe_marker == TRUE, destination, canvas.width());
        }
    }
    return true;
}

/// The profile, which may stand in several markers. Null if there is none or a part is missing.
JOCTET* readProfile(JPEGReader& reader, unsigned& length) {
    if (setjmp(reader.leave) != 0) {
        return nullptr;
    }
    JOCTET* profile = nullptr;
    return jpeg_read_icc_profile(&reader.jpeg, &profile, &length) == TRUE ? profile : nullptr;
}

void convertColours(JPEGReader& reader, const Canvas& canvas) {
    if (reader.jpeg.num_components != 3) {
        return;
    }
    unsigned length = 0;
    const std::unique_ptr<JOCTET, decltype(&std::free)> profile(readProfile(reader, length),
                                                                &std::free);
    convertFromProfile({profile.get(), length}, canvas);
}

}  // namespace

std::optional<DecodedImage> decodeJPEG(std::span<const std::uint8_t> file, PixelStore& pixels) {
    JPEGReader reader;
    if (!readHeader(reader, file)) {
        return std::nullopt;
    }
    const auto canvas = pixels.allocate(reader.jpeg.image_width, reader.jpeg.image_height);
    if (!canvas) {
        return std::nullopt;
    }
    std::vector<std::uint8_t> fourColours;
    if (reader.jpeg.out_color_space == JCS_CMYK) {
        fourColours.resize(canvas->bytesPerRow());
    }
    if (!readRows(reader, *canvas, fourColours.empty() ? nullptr : fourColours.data())) {
        return std::nullopt;
    }
    // A file that lacks only its end mark is complete; one with made-up pixels is not.
    if (reader.starved && (reader.ended || reader.resumed)) {
        return std::nullopt;
    }
    convertColours(reader, *canvas);
    return upright(*canvas, orientationOf(reader.jpeg), false);
}

}  // namespace glintmark::decoder
