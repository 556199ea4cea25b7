// The processor time of one poll of a folder of many entries, beside that of a bare read of the
// directory: once with entries that are no link files, once with link files that are all known.
// Fails when the first takes more than 1.3 times as long.
//
// PollBench [--json FILE] [ENTRIES [FOLDER]]: how many (100,000), and where to make them ($TMPDIR).

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bench/Figures.h"
#include "platform/linux/files/FileDescriptor.h"
#include "platform/linux/files/PosixFileManager.h"
#include "tests/doubles/TestPlatform.h"
#include "watcher/FileWatcher.h"

namespace glintmark {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int rounds = 25;
constexpr double maximumRatio = 1.3;

/// Lets the bench ask for a poll.
class PolledWatcher : public FileWatcher {
public:
    using FileWatcher::FileWatcher;
    using FileWatcher::pollWatchDirs;
};

void fill(const std::string& folder, int entries, const char* ending) {
    std::filesystem::create_directory(folder);
    for (int i = 0; i < entries; ++i) {
        const auto path = folder + "/a file " + std::to_string(i) + ending;
        const platform::FileDescriptor file(
            ::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    }
}

/// The least that a listing takes: read each entry, look at its name.
std::size_t readBarely(const std::string& folder) {
    std::size_t count = 0;
    DIR* const directory = ::opendir(folder.c_str());
    while (const dirent* entry = ::readdir(directory)) {
        count += entry->d_name[0] != '.' ? 1U : 0U;
    }
    ::closedir(directory);
    return count;
}

/// Of this thread, so that a busy machine does not blur the ratio; nothing here waits.
Milliseconds processorTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

template <typename Work>
Milliseconds timeOf(const Work& work) {
    const auto begin = processorTime();
    work();
    return processorTime() - begin;
}

Milliseconds median(std::vector<Milliseconds> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void measure(bench::Figures& figures, const std::string& what, const std::string& folder,
             double most) {
    const auto watcher = std::make_shared<PolledWatcher>(std::vector<std::string>{folder},
                                                         [](const FileWatcherEvent&) {});
    std::vector<Milliseconds> bare;
    std::vector<Milliseconds> polls;
    for (int i = 0; i < rounds; ++i) {
        bare.push_back(timeOf([&] { readBarely(folder); }));
        polls.push_back(timeOf([&] { watcher->pollWatchDirs(); }));
    }
    figures.add(what + ": bare read", median(bare).count(), "ms");
    figures.add(what + ": poll", median(polls).count(), "ms");
    figures.add(what + ": ratio", median(polls) / median(bare), "", most);
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    using namespace glintmark;
    const char* json = nullptr;
    if (argc > 2 && std::strcmp(argv[1], "--json") == 0) {
        json = argv[2];
        argv += 2;
        argc -= 2;
    }
    const int entries = argc > 1 ? std::atoi(argv[1]) : 100'000;
    const std::filesystem::path place =
        argc > 2 ? std::filesystem::path(argv[2]) : std::filesystem::temp_directory_path();
    auto folder = (place / "glintmark-bench.XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return EXIT_FAILURE;
    }
    doubles::Fakes fakes;
    platform::PosixFileManager files;
    const platform::Services services{fakes.application,  fakes.bundle,        fakes.configuration,
                                      fakes.queues,       fakes.eventStreams,  files,
                                      fakes.imageDecoder, fakes.log,           fakes.openPanel,
                                      fakes.statusBar,    fakes.queues,        fakes.urlSession,
                                      fakes.userDefaults, fakes.notifications, fakes.workspace};
    const platform::ServicesScope scope(services);
    bench::Figures figures("poll");
    fill(folder + "/others", entries, ".txt");
    measure(figures, "other files", folder + "/others", maximumRatio);
    fill(folder + "/links", entries, ".webloc");
    measure(figures, "known link files", folder + "/links", bench::Figures::noLimit);
    std::filesystem::remove_all(folder);
    const bool written = json == nullptr || figures.write(json);
    return figures.passed() && written ? EXIT_SUCCESS : EXIT_FAILURE;
}
