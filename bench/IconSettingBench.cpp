// How long the main thread is held while a file gets its icon: encoding, hashing, thumbnails, and
// all writing, for a flat icon, a drawn one and noise at every pixel, which no enlarged icon has.
// The metadata daemon is left out. Fails when the median of a kind is above 20 ms.

#include <stdlib.h>  // NOLINT(modernize-deprecated-headers): setenv

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "platform/Image.h"
#include "platform/linux/workspace/DesktopWorkspace.h"

namespace glintmark::platform {
namespace {

using Pixels = std::vector<std::uint8_t>;

constexpr int edge = 512;
constexpr int files = 31;
constexpr double maximumMilliseconds = 20;

void flat(Pixels& pixels) {
    for (std::size_t i = 0; i < pixels.size(); i += 4) {
        pixels[i] = 200;
        pixels[i + 3] = 255;
    }
}

/// A disc with a gradient and soft edges, as drawn icons have.
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

struct Kind {
    const char* name;
    void (*fill)(Pixels&);
};

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

double processorMilliseconds(clockid_t clock) {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) * 1e-6;
}

bool measure(const Kind& kind, DesktopWorkspace& workspace, const std::filesystem::path& folder) {
    Pixels pixels(static_cast<std::size_t>(edge) * edge * BitmapImageRep::bytesPerPixel);
    kind.fill(pixels);
    std::vector<double> elapsed;
    std::vector<double> caller;
    for (int i = 0; i < files; ++i) {
        const auto path = (folder / (kind.name + std::to_string(i) + ".webloc")).string();
        std::ofstream(path) << "link";
        pixels[0] = static_cast<std::uint8_t>(i);  // so that no picture is stored already
        const Image image(BitmapImageRep(edge, edge, true, pixels));
        workspace.prepareIcon(image);  // on another thread in the program
        const auto begin = std::chrono::steady_clock::now();
        const double thread = processorMilliseconds(CLOCK_THREAD_CPUTIME_ID);
        if (!workspace.setIcon(image, path)) {
            return false;
        }
        caller.push_back(processorMilliseconds(CLOCK_THREAD_CPUTIME_ID) - thread);
        elapsed.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin)
                .count());
    }
    const bool holds = median(elapsed) <= maximumMilliseconds;
    std::printf("%-6s median %5.1f ms, processor time of the main thread %5.1f ms%s\n", kind.name,
                median(elapsed), median(caller), holds ? "" : "  too slow");
    return holds;
}

bool run(const std::string& folder) {
    SessionBus bus(std::chrono::milliseconds(1));
    DesktopWorkspace workspace(
        bus, {folder + "/home", folder + "/data", folder + "/cache"},
        [](const std::string& /*path*/, const std::string& /*uri*/) { return true; });
    bool held = true;
    for (const Kind& kind : {Kind{"flat", flat}, Kind{"drawn", drawn}, Kind{"noise", noise}}) {
        held = measure(kind, workspace, folder) && held;
    }
    return held;
}

}  // namespace
}  // namespace glintmark::platform

int main() {
    // No desktop takes part: the windows of a real one would be told of files that soon are gone.
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    auto folder = (std::filesystem::temp_directory_path() / "glintmark-bench.XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }
    const bool held = glintmark::platform::run(folder);
    std::filesystem::remove_all(folder);
    return held ? 0 : 1;
}
