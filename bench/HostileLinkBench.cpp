// How long links that send bombs hold up an honest one. A hostile link has a PNG of 7000 x 7000
// pixels, 2.2 MB long, at each of its icon addresses; the honest one has icons of usual sizes, and
// arrives when the hostile links are under way. Also the memory of the image decoder's processes.
// Fails if one hostile link delays the honest one by more than 1 s, four by more than 4 s, or if
// the processes take more than 300 MB together.

#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <future>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/graphics/Image.h"
#include "bench/Figures.h"
#include "linux/images/PNGWriter.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/network/CurlURLSession.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/support/DecodeAndWait.h"
#include "tests/support/WholeFile.h"

namespace glintmark {
namespace {

using bench::Milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int hostileEdge = 7000;
constexpr std::size_t hostileBytes = 2'200'000;
constexpr int imagesOfHostileLink = 12;
constexpr int imagesOfHonestLink = 4;
constexpr double maximumMegabytes = 300;
constexpr double maximumDelayOfEach = 1000;  // milliseconds

/// Noise at the top, so that the file has the wanted length; the rest is empty.
std::string hostileImage() {
    std::vector<std::uint8_t> pixels(std::size_t{hostileEdge} * hostileEdge *
                                     BitmapImageRep::bytesPerPixel);
    std::mt19937 random(1);
    for (std::size_t i = 0; i < hostileBytes; ++i) {
        pixels[i] = static_cast<std::uint8_t>(random());
    }
    return platform::encodedPNG(BitmapImageRep(hostileEdge, hostileEdge, true, std::move(pixels)));
}

/// The processes below `process` and, for each, its resident bytes. Shared pages count in each.
std::size_t residentBytesBelow(const std::string& process) {
    std::size_t bytes = 0;
    std::ifstream children("/proc/" + process + "/task/" + process + "/children");
    for (std::string child; children >> child;) {
        std::size_t total = 0;
        std::size_t resident = 0;
        std::ifstream("/proc/" + child + "/statm") >> total >> resident;
        bytes += resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        bytes += residentBytesBelow(child);
    }
    return bytes;
}

/// Looks at the memory of all processes below this one until it is destroyed.
class MemoryWatch {
public:
    double peakMegabytes() const { return static_cast<double>(peak_.load()) / 1e6; }

private:
    std::atomic<std::size_t> peak_ = 0;
    std::jthread thread_{[this](const std::stop_token& stop) {
        const std::string self = std::to_string(getpid());
        while (!stop.stop_requested()) {
            peak_ = std::max(peak_.load(), residentBytesBelow(self));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }};
};

/// A link whose images are all asked for at once.
class HostileLink {
public:
    HostileLink(platform::ImageDecoder& decoder, const std::string& image)
        : link_(decoder.makeBatch()) {
        for (int i = 0; i < imagesOfHostileLink; ++i) {
            decoder.decode(image, link_, [rest = rest_](const auto&) {
                if (--rest->count == 0) {
                    rest->ended.set_value();
                }
            });
        }
    }
    void wait() { rest_->ended.get_future().wait(); }

private:
    struct Rest {
        std::atomic<int> count = imagesOfHostileLink;
        std::promise<void> ended;
    };
    std::shared_ptr<Rest> rest_ = std::make_shared<Rest>();
    std::shared_ptr<platform::ImageBatch> link_;
};

struct Result {
    Milliseconds honest{0};  ///< From the honest link's first request to its last image.
    Milliseconds all{0};
    double megabytes = 0;
    int lost = 0;  ///< Images of the honest link that did not decode.
};

Result run(int hostileLinks, const std::string& hostile, const std::string& honest) {
    Result result;
    platform::ThreadPoolQueue completions("completions", 1);
    platform::CurlURLSession session(completions, {.version = "bench"});
    platform::SandboxedImageDecoder decoder(GLINTMARK_IMAGE_DECODER, session);
    test::decodeAndWait(decoder, honest);  // starts the helper
    const MemoryWatch memory;
    const auto begin = Clock::now();
    std::vector<std::unique_ptr<HostileLink>> links;
    for (int i = 0; i < hostileLinks; ++i) {
        links.push_back(std::make_unique<HostileLink>(decoder, hostile));
    }
    // The honest site answers a little later, when all that can be decoded at once is under way.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto honestBegin = Clock::now();
    const auto link = decoder.makeBatch();
    for (int i = 0; i < imagesOfHonestLink; ++i) {
        result.lost += test::decodeAndWait(decoder, honest, link) ? 0 : 1;
    }
    result.honest = Clock::now() - honestBegin;
    for (const auto& hostileLink : links) {
        hostileLink->wait();
    }
    result.all = Clock::now() - begin;
    result.megabytes = memory.peakMegabytes();
    return result;
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    using namespace glintmark;
    const bench::Options options(argc, argv);
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // the helper's processes are then below this one
    const std::string honest = test::wholeFile(GLINTMARK_TEST_DATA "/images/icon-256.png");
    const std::string hostile = hostileImage();
    bench::Figures figures;
    figures.add({.what = "length of a hostile image",
                 .value = static_cast<double>(hostile.size()) / 1e6,
                 .unit = "MB"});
    const Result alone = run(0, hostile, honest);
    figures.add({.what = "honest link alone", .value = alone.honest.count(), .unit = "ms"});
    for (const int count : {1, 4}) {
        const Result result = run(count, hostile, honest);
        const std::string at = std::to_string(count) + " hostile";
        figures.add({.what = "delay of the honest link",
                     .value = (result.honest - alone.honest).count(),
                     .unit = "ms",
                     .maximum = count * maximumDelayOfEach,
                     .at = at});
        figures.add({.what = "honest images lost",
                     .value = static_cast<double>(result.lost),
                     .maximum = 0,
                     .at = at});
        figures.add(
            {.what = "until the last image", .value = result.all.count(), .unit = "ms", .at = at});
        figures.add({.what = "memory of the decoder's processes",
                     .value = result.megabytes,
                     .unit = "MB",
                     .maximum = maximumMegabytes,
                     .at = at});
    }
    return figures.finish(options);
}
