// The processor time of one poll of a folder with many entries, compared with a bare read of the
// directory: once with other files only, once with known link files only. Fails if either takes
// more than 1.3 times as long.
//
// PollBench [--json FILE] [--smoke] [ENTRIES [FOLDER]]: how many entries (100,000), and where to
// make them ($TMPDIR).

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "bench/Figures.h"
#include "bench/TemporaryFolder.h"
#include "linux/files/PosixFileManager.h"
#include "tests/doubles/TestPlatform.h"
#include "watcher/FileWatcher.h"

namespace glintmark {
namespace {

using bench::median;
using bench::Milliseconds;

constexpr int rounds = 25;
constexpr double maximumRatio = 1.3;

/// A watcher that the benchmark can poll.
class PolledWatcher : public FileWatcher {
public:
    using FileWatcher::FileWatcher;
    using FileWatcher::pollWatchDirs;
};

void fill(const std::string& folder, int entries, const char* ending) {
    std::filesystem::create_directory(folder);
    for (int i = 0; i < entries; ++i) {
        const auto path = folder + "/a file " + std::to_string(i) + ending;
        const FileDescriptor file(::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    }
}

/// The minimum that a listing takes: read each entry, look at its name.
std::size_t bareRead(const std::string& folder) {
    std::size_t count = 0;
    DIR* const directory = ::opendir(folder.c_str());
    while (const dirent* entry = ::readdir(directory)) {
        count += entry->d_name[0] != '.' ? 1U : 0U;
    }
    ::closedir(directory);
    return count;
}

/// The processor time of this thread, so that a busy machine does not blur the ratio. Nothing here
/// waits.
template <typename Work>
Milliseconds timeOf(const Work& work) {
    const auto begin = bench::processorTime(CLOCK_THREAD_CPUTIME_ID);
    work();
    return bench::processorTime(CLOCK_THREAD_CPUTIME_ID) - begin;
}

void measure(bench::Figures& figures, const std::string& what, const std::string& folder) {
    const auto watcher = std::make_shared<PolledWatcher>(std::vector<std::string>{folder},
                                                         [](const FileWatcherEvent&) {});
    std::vector<Milliseconds> bare;
    std::vector<Milliseconds> polls;
    for (int i = 0; i < rounds; ++i) {
        bare.push_back(timeOf([&] { bareRead(folder); }));
        polls.push_back(timeOf([&] { watcher->pollWatchDirs(); }));
    }
    figures.add({.what = "read",
                 .value = median(bare).count(),
                 .unit = "ms",
                 .of = "bare read",
                 .at = what});
    figures.add({.what = "read", .value = median(polls).count(), .unit = "ms", .at = what});
    figures.add({.what = "read, times the bare one",
                 .value = median(polls) / median(bare),
                 .maximum = maximumRatio,
                 .at = what});
}

}  // namespace
}  // namespace glintmark

int main(int argc, char** argv) {
    using namespace glintmark;
    const bench::Options options(argc, argv);
    const int entries = options.count(options.smoke ? 1'000 : 100'000);
    const bench::TemporaryFolder folder(options.place());
    doubles::Fakes fakes;
    platform::PosixFileManager files;
    const platform::Services services = fakes.servicesWith({.fileManager = &files});
    const platform::ServicesScope scope(services);
    bench::Figures figures;
    fill(folder.path() + "/others", entries, ".txt");
    measure(figures, "other files", folder.path() + "/others");
    fill(folder.path() + "/links", entries, ".webloc");
    measure(figures, "known link files", folder.path() + "/links");
    return figures.finish(options);
}
