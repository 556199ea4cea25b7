// The time to decode an icon and scale it to 512 pixels: in the sandbox, in the calling process,
// and with gdk-pixbuf, which has no sandbox. Fails if the 256-pixel PNG takes more than 4 ms in the
// sandbox in the median, or more than 15 ms in the 99th percentile.

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/graphics/Image.h"
#include "base/graphics/ImageScaling.h"
#include "bench/Figures.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/doubles/InProcessImageDecoder.h"
#include "tests/support/DecodeAndWait.h"

namespace glintmark {
namespace {

using bench::Milliseconds;

constexpr double maximumMedian = 4;       // milliseconds
constexpr double maximumPercentile = 15;  // milliseconds
constexpr std::string_view limitedKind = "PNG of 256";
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

template <typename Decoder>
bool decodeAndScale(Decoder& decoder, const std::string& data) {
    const auto image = test::decodeAndWait(decoder, data);
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

struct Way {
    const char* name;
    std::function<bool(const std::string&)> decode;
    std::vector<Milliseconds> times = {};
};

void measure(const Kind& kind, int samples, bench::Figures& figures) {
    static platform::ThreadPoolQueue completions("completions", 1);
    static platform::SandboxedImageDecoder sandboxed(GLINTMARK_IMAGE_DECODER, completions);
    static doubles::InProcessImageDecoder inProcess;
    std::vector<Way> ways = {
        {"glintmark", [](const std::string& data) { return decodeAndScale(sandboxed, data); }},
        {"unboxed", [](const std::string& data) { return decodeAndScale(inProcess, data); }},
        {"gdk-pixbuf", decodeAndScaleWithGdkPixbuf}};
    const std::string data = picture(kind);
    for (int i = 0; i < samples; ++i) {  // alternately, so that all meet the same load
        for (Way& way : ways) {
            const auto begin = std::chrono::steady_clock::now();
            if (!way.decode(data)) {
                std::exit(EXIT_FAILURE);  // NOLINT(concurrency-mt-unsafe): no other thread exits
            }
            way.times.emplace_back(std::chrono::steady_clock::now() - begin);
        }
    }
    const auto add = [&](const char* what, double share, double maximum) {
        for (const Way& way : ways) {
            const bool isLimited = kind.name == limitedKind && &way == ways.data();
            figures.add({.what = what,
                         .value = bench::quantile(way.times, share).count(),
                         .unit = "ms",
                         .maximum = isLimited ? maximum : bench::Figures::noLimit,
                         .of = way.name,
                         .at = kind.name});
        }
    };
    add("median", 0.5, maximumMedian);
    add("99th percentile", 0.99, maximumPercentile);
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    const glintmark::bench::Options options(argc, argv);
    glintmark::bench::Figures figures;
    for (const auto& kind : glintmark::kinds) {
        glintmark::measure(kind, options.smoke ? 5 : 500, figures);
    }
    return figures.finish(options);
}
