// The time to decode an icon and scale it to 512 pixels: in the sandbox, in the calling process
// ("unboxed"), and with gdk-pixbuf, which has no sandbox either. Each round is one link with four
// images, which is what a site has: the sandbox decodes them in one child, one after another. Each
// image counts by itself, so that the first of a link weighs a quarter. The first images are also
// shown alone: that is the time for a link with one image.
//
// Fails if the 256-pixel PNG takes more in the sandbox than 1.25 times the unboxed time in the
// median, or more than 2.5 times in the 99th percentile.

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/graphics/Image.h"
#include "base/graphics/ImageScaling.h"
#include "bench/Figures.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/network/CurlURLSession.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/doubles/InProcessImageDecoder.h"
#include "tests/support/DecodeAndWait.h"

namespace glintmark {
namespace {

using bench::Milliseconds;

constexpr double maximumMedianRatio = 1.25;
constexpr double maximumPercentileRatio = 2.5;
constexpr std::string_view limitedKind = "PNG of 256";
constexpr int imagesOfLink = 4;
constexpr int iconSize = 512;

struct Kind {
    const char* name;
    const char* format;
    int edge;
};

constexpr std::array kinds{Kind{"PNG of 32", "png", 32},     Kind{"PNG of 180", "png", 180},
                           Kind{"PNG of 256", "png", 256},   Kind{"PNG of 512", "png", 512},
                           Kind{"JPEG of 256", "jpeg", 256}, Kind{"ICO of 48", "ico", 48},
                           Kind{"BMP of 256", "bmp", 256},   Kind{"TIFF of 256", "tiff", 256}};

/// The test icon in the format and size of `kind`.
std::string picture(const Kind& kind) {
    GdkPixbuf* const scaled = gdk_pixbuf_new_from_file_at_size(
        GLINTMARK_TEST_DATA "/images/icon-256.png", kind.edge, kind.edge, nullptr);
    gchar* bytes = nullptr;
    gsize size = 0;
    if (scaled == nullptr || gdk_pixbuf_save_to_bufferv(scaled, &bytes, &size, kind.format, nullptr,
                                                        nullptr, nullptr) == FALSE) {
        std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): nothing else runs yet
    }
    std::string data(bytes, size);
    g_free(bytes);
    g_object_unref(scaled);
    return data;
}

bool decodeAndScale(platform::ImageDecoder& decoder, const std::string& data,
                    const std::shared_ptr<platform::ImageBatch>& link) {
    const auto image = test::decodeAndWait(decoder, data, link);
    return image && scaled(*image->bitmap(), iconSize, iconSize).pixelsWide() == iconSize;
}

bool decodeAndScaleWithGdkPixbuf(const std::string& data) {
    GdkPixbufLoader* const loader = gdk_pixbuf_loader_new();
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(data.data());
    const bool read = gdk_pixbuf_loader_write(loader, bytes, data.size(), nullptr) != FALSE;
    const bool closed = gdk_pixbuf_loader_close(loader, nullptr) != FALSE;
    bool done = false;
    if (read && closed) {
        GdkPixbuf* const scaled = gdk_pixbuf_scale_simple(gdk_pixbuf_loader_get_pixbuf(loader),
                                                          iconSize, iconSize, GDK_INTERP_BILINEAR);
        done = scaled != nullptr;
        g_object_unref(scaled);
    }
    g_object_unref(loader);
    return done;
}

using Times = std::vector<Milliseconds>;

struct Way {
    const char* name;
    platform::ImageDecoder* decoder;  ///< Null for gdk-pixbuf.
    Times times = {};
    Times firstTimes = {};  ///< Of the first image of each link.

    void runLink(const std::string& data) {
        const auto link = decoder != nullptr ? decoder->makeBatch() : nullptr;
        for (int i = 0; i < imagesOfLink; ++i) {
            const auto begin = std::chrono::steady_clock::now();
            const bool done = decoder != nullptr ? decodeAndScale(*decoder, data, link)
                                                 : decodeAndScaleWithGdkPixbuf(data);
            if (!done) {
                std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): no other thread exits
            }
            times.emplace_back(std::chrono::steady_clock::now() - begin);
            if (i == 0) {
                firstTimes.push_back(times.back());
            }
        }
    }
};

void measure(const Kind& kind, int links, bench::Figures& figures) {
    static platform::ThreadPoolQueue completions("completions", 1);
    static platform::CurlURLSession session(completions, {.version = "bench"});
    static platform::SandboxedImageDecoder sandboxed(GLINTMARK_IMAGE_DECODER, session);
    static doubles::InProcessImageDecoder inProcess;
    std::array ways{Way{"glintmark", &sandboxed}, Way{"unboxed", &inProcess},
                    Way{"gdk-pixbuf", nullptr}};
    const std::string data = picture(kind);
    for (int i = 0; i < links; ++i) {  // alternately, so that all meet the same load
        for (Way& way : ways) {
            way.runLink(data);
        }
    }
    const auto add = [&](const std::string& what, double share, const Times Way::*times,
                         double maximumRatio) {
        for (const Way& way : ways) {
            figures.add({.what = what,
                         .value = bench::quantile(way.*times, share).count(),
                         .unit = "ms",
                         .of = way.name,
                         .at = kind.name});
        }
        figures.add({.what = what + ", times the unboxed time",
                     .value = bench::quantile(ways[0].*times, share) /
                              bench::quantile(ways[1].*times, share),
                     .maximum = kind.name == limitedKind ? maximumRatio : bench::Figures::noLimit,
                     .at = kind.name});
    };
    add("median", 0.5, &Way::times, maximumMedianRatio);
    add("99th percentile", 0.99, &Way::times, maximumPercentileRatio);
    add("first of a link, median", 0.5, &Way::firstTimes, bench::Figures::noLimit);
    add("first of a link, 99th percentile", 0.99, &Way::firstTimes, bench::Figures::noLimit);
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    const glintmark::bench::Options options(argc, argv);
    glintmark::bench::Figures figures;
    for (const auto& kind : glintmark::kinds) {
        glintmark::measure(kind, options.smoke ? 5 : 250, figures);
    }
    return figures.finish(options);
}
