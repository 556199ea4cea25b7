// The cost of bombs: pictures made to need much time or memory. For each bomb of the test data it
// measures the processor time of decoding, and an upper bound for the memory of the process tree
// while the sandbox decodes it. Fails if a bomb takes more than 50 ms or 300 MB.

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/graphics/Image.h"
#include "bench/Figures.h"
#include "linux/images/SandboxedImageDecoder.h"
#include "linux/network/CurlURLSession.h"
#include "linux/queues/ThreadPoolQueue.h"
#include "tests/doubles/InProcessImageDecoder.h"
#include "tests/support/DecodeAndWait.h"
#include "tests/support/WholeFile.h"

namespace glintmark {
namespace {

constexpr double maximumMilliseconds = 50;
constexpr double maximumMegabytes = 300;
constexpr int rounds = 5;
constexpr int decodersAtOnce = 2;  // children of the helper
constexpr int callersAtOnce = 8;

struct Cost {
    double milliseconds = 0;
    double megabytes = 0;
    double width = 0;  ///< Of the decoded picture; 0 if it is refused.
};

using Names = std::vector<std::string>;

Names bombs() {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(GLINTMARK_TEST_DATA "/images")) {
        std::string name = entry.path().filename();
        if (name.starts_with("bomb-")) {
            names.push_back(std::move(name));
        }
    }
    std::ranges::sort(names);
    return names;
}

std::string contents(const std::string& name) {
    return test::wholeFile(GLINTMARK_TEST_DATA "/images/" + name);
}

/// The maximum of all rounds.
Cost timeToDecode(const Names& names) {
    doubles::InProcessImageDecoder decoder;
    decoder.decode(contents("icon-256.png"));  // the helper warms up before it forks, too
    Cost cost;
    for (const std::string& name : names) {
        const std::string data = contents(name);
        for (int round = 0; round < rounds; ++round) {
            const auto before = bench::processorTime();
            const auto image = decoder.decode(data);
            cost.milliseconds =
                std::max(cost.milliseconds, (bench::processorTime() - before).count());
            if (image) {
                cost.width = image->size().width;
            }
        }
    }
    return cost;
}

double peakMegabytes(int whose) {
    rusage usage{};
    getrusage(whose, &usage);
    return static_cast<double>(usage.ru_maxrss) * 1024 / 1e6;
}

/// An upper bound: the peak resident sizes of this process and of the helper, and for each child
/// the peak of the largest one. Shared pages count several times.
Cost memoryToDecode(const Names& names) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // this process then reaps the helper and gets its figures
    {
        platform::ThreadPoolQueue completions("completions", 1);
        platform::CurlURLSession session(completions, {.version = "bench"});
        platform::SandboxedImageDecoder decoder(GLINTMARK_IMAGE_DECODER, session);
        std::vector<std::thread> callers;
        for (int caller = 0; caller < callersAtOnce; ++caller) {
            callers.emplace_back([&] {
                for (const std::string& name : names) {
                    test::decodeAndWait(decoder, contents(name));
                }
            });
        }
        for (std::thread& caller : callers) {
            caller.join();
        }
    }
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    return {.megabytes =
                peakMegabytes(RUSAGE_SELF) + (1 + decodersAtOnce) * peakMegabytes(RUSAGE_CHILDREN)};
}

/// Runs `measure` in a separate process, so that other measurements do not count.
Cost inSeparateProcess(Cost (*measure)(const Names&), const Names& names) {
    int ends[2] = {};
    if (pipe(ends) != 0) {
        std::abort();
    }
    if (fork() == 0) {
        const Cost cost = measure(names);
        const bool written = write(ends[1], &cost, sizeof cost) == ssize_t{sizeof cost};
        _exit(written ? 0 : 1);
    }
    close(ends[1]);
    Cost cost{.milliseconds = maximumMilliseconds + 1, .megabytes = maximumMegabytes + 1};
    if (read(ends[0], &cost, sizeof cost) != ssize_t{sizeof cost}) {
        std::puts("a measurement died");
    }
    close(ends[0]);
    wait(nullptr);
    return cost;
}

void measure(const std::string& what, const Names& names, bench::Figures& figures) {
    const Cost time = inSeparateProcess(timeToDecode, names);
    const Cost memory = inSeparateProcess(memoryToDecode, names);
    figures.add({.what = "processor time",
                 .value = time.milliseconds,
                 .unit = "ms",
                 .maximum = maximumMilliseconds,
                 .at = what});
    figures.add({.what = "memory of the process tree",
                 .value = memory.megabytes,
                 .unit = "MB",
                 .maximum = maximumMegabytes,
                 .at = what});
    figures.add(
        {.what = "width shown, 0 when refused", .value = time.width, .unit = "pixels", .at = what});
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    using namespace glintmark;
    const bench::Options options(argc, argv);
    const Names names = bombs();
    bench::Figures figures;
    for (const std::string& name : names) {
        measure(name.substr(5), {name}, figures);
    }
    measure("all of them, mixed", names, figures);
    return figures.finish(options);
}
