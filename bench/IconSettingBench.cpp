// How long `setIcon` blocks the main thread: it writes the thumbnails and the file's attributes.
// The image was encoded and stored before, by `prepareIcon`, which the program calls on another
// thread. The images are a flat icon, a drawn one, and noise in every pixel, which no enlarged icon
// has. The metadata daemon is left out. Also what an icon takes on the disk. Fails if the median
// for an image is above 4 ms.

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): setenv
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/graphics/Image.h"
#include "bench/Figures.h"
#include "bench/TemporaryFolder.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "linux/workspace/DesktopWorkspace.h"

namespace glintmark::platform {
namespace {

using bench::Milliseconds;
using Pixels = std::vector<std::uint8_t>;

constexpr int edge = 512;
constexpr double maximumMilliseconds = 4;

void flat(Pixels& pixels) {
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        pixels[i] = 200;
        pixels[i + 3] = 255;
    }
}

/// A disc with a gradient and soft edges, like a drawn icon.
void drawn(Pixels& pixels) {
    for (int y = 0; y < edge; ++y) {
        for (int x = 0; x < edge; ++x) {
            const double distance = std::hypot(x - edge / 2.0, y - edge / 2.0);
            const double opacity = std::clamp(edge * 0.45 - distance, 0.0, 1.0);
            std::uint8_t* const pixel = &pixels[static_cast<std::size_t>(y * edge + x) * 4];
            pixel[0] = static_cast<std::uint8_t>(x / 2);
            pixel[1] = static_cast<std::uint8_t>(y / 2);
            pixel[2] = static_cast<std::uint8_t>(128 + 100 * std::sin(distance / 12));
            pixel[3] = static_cast<std::uint8_t>(opacity * 255);
        }
    }
}

void noise(Pixels& pixels) {
    std::mt19937 random(1);
    for (auto& byte : pixels) {
        byte = static_cast<std::uint8_t>(random());
    }
}

/// What the files below `folder` take on the disk. A file with two names counts once.
std::uintmax_t bytesOnDisk(const std::string& folder) {
    constexpr std::uintmax_t blockBytes = 512;  // stat(3type)
    std::set<ino_t> seen;
    std::uintmax_t bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        struct stat status {};
        if (entry.is_regular_file() && stat(entry.path().c_str(), &status) == 0 &&
            seen.insert(status.st_ino).second) {
            bytes += static_cast<std::uintmax_t>(status.st_blocks) * blockBytes;
        }
    }
    return bytes;
}

struct Kind {
    const char* name;
    void (*fill)(Pixels&);
};

void measure(const Kind& kind, int files, DesktopWorkspace& workspace, const std::string& folder,
             bench::Figures& figures) {
    Pixels pixels(static_cast<std::size_t>(edge) * edge * BitmapImageRep::bytesPerPixel);
    kind.fill(pixels);
    std::vector<Milliseconds> elapsed;
    std::vector<Milliseconds> caller;
    int failed = 0;
    const auto before = bytesOnDisk(folder);
    for (int i = 0; i < files; ++i) {
        const auto path = folder + "/" + kind.name + std::to_string(i) + ".webloc";
        std::ofstream(path) << "link";
        pixels[0] = static_cast<std::uint8_t>(i);  // so that the store has no equal picture
        // The program does this on another thread.
        auto icon = workspace.prepareIcon(Image(BitmapImageRep(edge, edge, true, pixels)));
        const auto begin = std::chrono::steady_clock::now();
        const auto thread = bench::processorTime(CLOCK_THREAD_CPUTIME_ID);
        failed += workspace.setIcon(std::move(icon), path, std::nullopt) ? 0 : 1;
        caller.push_back(bench::processorTime(CLOCK_THREAD_CPUTIME_ID) - thread);
        elapsed.emplace_back(std::chrono::steady_clock::now() - begin);
    }
    figures.add({.what = "median",
                 .value = bench::median(elapsed).count(),
                 .unit = "ms",
                 .maximum = maximumMilliseconds,
                 .at = kind.name});
    figures.add({.what = "processor time of the main thread, median",
                 .value = bench::median(caller).count(),
                 .unit = "ms",
                 .at = kind.name});
    figures.add({.what = "on the disk for each file",
                 .value = static_cast<double>(bytesOnDisk(folder) - before) / files / 1000,
                 .unit = "kB",
                 .at = kind.name});
    figures.add({.what = "files without their icon",
                 .value = static_cast<double>(failed),
                 .maximum = 0,
                 .at = kind.name});
}

}  // namespace
}  // namespace glintmark::platform

int main(int argc, char** argv) {
    using namespace glintmark;
    // No desktop takes part: a real one would be notified of files that are soon deleted.
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    const bench::Options options(argc, argv);
    const bench::TemporaryFolder folder;
    platform::SessionBus bus(std::chrono::milliseconds(1));
    platform::ThreadPoolQueue helpers("helpers", 2);
    platform::DesktopWorkspace workspace(
        bus, helpers, {folder.path() + "/home", folder.path() + "/data", folder.path() + "/cache"},
        [](const std::string& /*path*/, const std::string& /*uri*/) { return true; });
    bench::Figures figures;
    using platform::Kind;
    for (const Kind& kind : {Kind{"flat", platform::flat}, Kind{"drawn", platform::drawn},
                             Kind{"noise", platform::noise}}) {
        platform::measure(kind, options.smoke ? 3 : 31, workspace, folder.path(), figures);
    }
    return figures.finish(options);
}
