#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "decoder/ColourProfile.h"
#include "decoder/FormatDecoders.h"
#include "decoder/ImageLimits.h"
#include "decoder/Orientation.h"
#include "decoder/PixelStore.h"

namespace glintmark::decoder {

namespace {

struct CloseTIFF {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};

struct TIFFSource {
    std::span<const std::uint8_t> bytes;
    toff_t position = 0;
};

TIFFSource& sourceOf(thandle_t handle) { return *static_cast<TIFFSource*>(handle); }

tsize_t readBytes(thandle_t handle, tdata_t destination, tsize_t wanted) {
    TIFFSource& source = sourceOf(handle);
    if (wanted < 0 || source.position >= source.bytes.size()) {
        return 0;
    }
    const auto rest = source.bytes.subspan(source.position);
    const std::size_t length = std::min(rest.size(), static_cast<std::size_t>(wanted));
    std::memcpy(destination, rest.data(), length);
    source.position += length;
    return static_cast<tsize_t>(length);
}

tsize_t refuseWrite(thandle_t /*handle*/, tdata_t /*data*/, tsize_t /*length*/) { return -1; }

toff_t seek(thandle_t handle, toff_t offset, int whence) {
    TIFFSource& source = sourceOf(handle);
    const toff_t start = whence == SEEK_CUR   ? source.position
                         : whence == SEEK_END ? source.bytes.size()
                                              : 0;
    source.position = start + offset;
    return source.position;
}

int closeNothing(thandle_t /*handle*/) { return 0; }
toff_t sizeOf(thandle_t handle) { return sourceOf(handle).bytes.size(); }

// With a mapping the library reads strips and tiles in place instead of copying them.
int map(thandle_t handle, tdata_t* base, toff_t* size) {
    // The library does not write to the mapping of a file that is open for reading.
    *base = const_cast<std::uint8_t*>(sourceOf(handle).bytes.data());
    *size = sourceOf(handle).bytes.size();
    return 1;
}

void unmap(thandle_t /*handle*/, tdata_t /*base*/, toff_t /*size*/) {}

// TIFF 6.0, section 18: colours are stored multiplied by alpha or not.
bool isMultiplied(TIFF* tiff) {
    std::uint16_t count = 0;
    std::uint16_t* kinds = nullptr;
    return TIFFGetField(tiff, TIFFTAG_EXTRASAMPLES, &count, &kinds) != 1 || count == 0 ||
           kinds[0] != EXTRASAMPLE_UNASSALPHA;
}

// The library multiplies colours that are stored unmultiplied. If the file declares them as
// multiplied, the library returns them as they are stored.
bool declareMultiplied(TIFF* tiff) {
    std::uint16_t kind = EXTRASAMPLE_ASSOCALPHA;
    return TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind) == 1;
}

void divideByAlpha(const Canvas& canvas) {
    const std::span<std::uint8_t> pixels = canvas.pixels();
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        const unsigned alpha = pixels[i + 3];
        if (alpha == 0 || alpha == 255) {
            continue;
        }
        for (std::size_t c = i; c < i + 3; ++c) {
            pixels[c] =
                static_cast<std::uint8_t>(std::min(255U, (pixels[c] * 255U + alpha / 2) / alpha));
        }
    }
}

/// The library's converter to RGBA. The destructor ends it.
class Converter {
public:
    explicit Converter(TIFF* tiff) {
        char message[1024];  // the length that the library requires
        begun_ = TIFFRGBAImageOK(tiff, message) == 1 &&
                 TIFFRGBAImageBegin(&image_, tiff, /*stop=*/1, message) == 1;
        image_.req_orientation = image_.orientation;  // the library turns only some of them
    }
    ~Converter() {
        if (begun_) {
            TIFFRGBAImageEnd(&image_);
        }
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    explicit operator bool() const { return begun_; }
    TIFFRGBAImage& image() { return image_; }

private:
    TIFFRGBAImage image_{};
    bool begun_ = false;
};

// A profile for other colours than those of the page is a mistake.
void convertColours(TIFF* tiff, const Canvas& canvas) {
    std::uint16_t colours = 0;
    std::uint32_t length = 0;
    void* profile = nullptr;
    TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &colours);
    const bool isRGB = colours == PHOTOMETRIC_RGB || colours == PHOTOMETRIC_PALETTE ||
                       colours == PHOTOMETRIC_YCBCR;
    if (isRGB && TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &length, &profile) == 1) {
        convertFromProfile({static_cast<const std::uint8_t*>(profile), length}, canvas);
    }
}

struct Page {
    tdir_t number = 0;
    std::int64_t pixels = 0;
    int depth = 0;
};

Page currentPage(TIFF* tiff, tdir_t number) {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint16_t bits = 0;
    std::uint16_t samples = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
    const bool tooLarge = width > maximumSide || height > maximumSide;
    return {number, tooLarge ? 0 : std::int64_t{width} * height, bits * samples};
}

std::vector<Page> pagesBestFirst(TIFF* tiff) {
    std::vector<Page> pages;
    do {
        pages.push_back(currentPage(tiff, static_cast<tdir_t>(pages.size())));
    } while (pages.size() < maximumEntries && TIFFReadDirectory(tiff) == 1);
    std::ranges::stable_sort(pages, [](const Page& a, const Page& b) {
        return a.pixels != b.pixels ? a.pixels > b.pixels : a.depth > b.depth;
    });
    return pages;
}

std::optional<DecodedImage> decodePage(TIFF* tiff, const Page& page, PixelStore& pixels) {
    if (TIFFSetDirectory(tiff, page.number) != 1) {
        return std::nullopt;
    }
    const bool multiplied = isMultiplied(tiff);
    if (!multiplied && !declareMultiplied(tiff)) {
        return std::nullopt;
    }
    Converter converter(tiff);
    if (!converter) {
        return std::nullopt;
    }
    TIFFRGBAImage& image = converter.image();
    const auto canvas = pixels.allocate(image.width, image.height);
    if (!canvas) {
        return std::nullopt;
    }
    // The library's pixels are 32-bit words with red in the lowest byte. On little-endian machines
    // these are RGBA bytes.
    auto* raster = reinterpret_cast<std::uint32_t*>(canvas->pixels().data());
    if (TIFFRGBAImageGet(&image, raster, image.width, image.height) != 1) {
        return std::nullopt;
    }
    const bool hasAlpha = image.alpha != 0;
    if (hasAlpha && multiplied) {
        divideByAlpha(*canvas);
    }
    convertColours(tiff, *canvas);
    return upright(*canvas, orientationOf(image.orientation), hasAlpha);
}

}  // namespace

std::optional<DecodedImage> decodeTIFF(std::span<const std::uint8_t> file, PixelStore& pixels) {
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    TIFFSource source{file};
    const std::unique_ptr<TIFF, CloseTIFF> tiff(TIFFClientOpen(
        "", "r", &source, readBytes, refuseWrite, seek, closeNothing, sizeOf, map, unmap));
    if (!tiff) {
        return std::nullopt;
    }
    for (const Page& page : pagesBestFirst(tiff.get())) {
        if (const auto decoded = decodePage(tiff.get(), page, pixels)) {
            return decoded;
        }
    }
    return std::nullopt;
}

}  // namespace glintmark::decoder
