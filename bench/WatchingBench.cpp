// Watching a tree of directories: the memory, and the time until all are watched, compared with a
// bare loop that opens, reads and watches each. Fails if it takes more than 1.2 times as long, or
// if a directory is not watched (fs.inotify.max_user_watches must allow them all).
//
// WatchingBench [--json FILE] [--smoke] [DIRECTORIES [FOLDER]]: how many directories (100,000), and
// where to make them ($TMPDIR).

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "bench/Figures.h"
#include "bench/TemporaryFolder.h"
#include "linux/watching/TreeWatches.h"

namespace glintmark::platform {
namespace {

using Clock = std::chrono::steady_clock;
using bench::median;
using bench::Milliseconds;

constexpr int rounds = 7;
constexpr int directoriesInEach = 8;
constexpr int filesInEach = 3;
constexpr std::uint32_t events =
    IN_CREATE | IN_DELETE | IN_MOVE | IN_CLOSE_WRITE | IN_ATTRIB | IN_MOVE_SELF;
constexpr double maximumRatio = 1.2;

/// Makes `count` directories, breadth first; each holds `directoriesInEach` of them and some files.
void makeTree(const std::string& folder, int count) {
    std::vector<std::string> parents = {folder};
    for (std::size_t i = 0; count > 0; ++i) {
        for (int file = 0; file < filesInEach; ++file) {
            const auto path = parents[i] + "/file-" + std::to_string(file);
            const FileDescriptor made(::open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        }
        for (int d = 0; d < directoriesInEach && count > 0; ++d, --count) {
            parents.push_back(parents[i] + "/folder-" + std::to_string(d));
            ::mkdir(parents.back().c_str(), 0700);
        }
    }
}

/// The minimum that watching takes: open, read and watch each directory.
std::size_t bareWatch(int inotify, std::string& path) {
    std::size_t count = 1;
    ::inotify_add_watch(inotify, path.c_str(), events);
    DIR* const directory = ::opendir(path.c_str());
    const auto length = path.size();
    while (const dirent* entry = ::readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (entry->d_type == DT_DIR && name != "." && name != "..") {
            path.append("/").append(name);
            count += bareWatch(inotify, path);
            path.resize(length);
        }
    }
    ::closedir(directory);
    return count;
}

Milliseconds bareLoop(std::string folder, std::size_t& count) {
    const FileDescriptor inotify(::inotify_init1(IN_CLOEXEC));
    const auto begin = Clock::now();
    count = bareWatch(inotify.get(), folder);
    return Clock::now() - begin;
}

Milliseconds treeWatches(const std::string& folder, std::size_t& count, double& bytes) {
    const auto before = ::mallinfo2();
    TreeWatches trees(*Inotify::make(), {folder}, [](std::string_view note) {
        std::fwrite(note.data(), 1, note.size(), stderr);
    });
    const auto begin = Clock::now();
    trees.watchFolders();
    while (trees.isWalking()) {
        trees.continueWalk();
        trees.readEvents();
    }
    const Milliseconds taken = Clock::now() - begin;
    const auto after = ::mallinfo2();
    bytes = static_cast<double>(after.uordblks + after.hblkhd - before.uordblks - before.hblkhd);
    count = trees.watchCount();
    return taken;
}

void run(const std::string& folder, int directories, bench::Figures& figures) {
    makeTree(folder, directories);
    std::size_t bareCount = 0;
    std::size_t count = 0;
    double bytes = 0;
    std::vector<Milliseconds> bare;
    std::vector<Milliseconds> ours;
    for (int i = 0; i < rounds; ++i) {
        bare.push_back(bareLoop(folder, bareCount));
        ours.push_back(treeWatches(folder, count, bytes));
    }
    const std::string at = std::to_string(directories) + " directories";
    figures.add({.what = "not watched",
                 .value = static_cast<double>(bareCount - count),
                 .maximum = 0,
                 .at = at});
    figures.add(
        {.what = "walk", .value = median(bare).count(), .unit = "ms", .of = "bare loop", .at = at});
    figures.add({.what = "walk", .value = median(ours).count(), .unit = "ms", .at = at});
    figures.add({.what = "walk, times the bare loop's",
                 .value = median(ours) / median(bare),
                 .maximum = maximumRatio,
                 .at = at});
    figures.add({.what = "memory a directory",
                 .value = bytes / static_cast<double>(count),
                 .unit = "bytes",
                 .at = at});
}

/// True if the system allows enough watches. Prints its limit if not.
bool allowsWatches(int directories) {
    int limit = 0;
    std::ifstream("/proc/sys/fs/inotify/max_user_watches") >> limit;
    if (limit <= directories) {
        std::fprintf(stderr, "fs.inotify.max_user_watches is %d: too low for %d directories\n",
                     limit, directories);
    }
    return limit > directories;
}

}  // namespace
}  // namespace glintmark::platform

int main(int argc, char** argv) {
    using namespace glintmark;
    const bench::Options options(argc, argv);
    const int directories = options.count(options.smoke ? 1'000 : 100'000);
    if (!platform::allowsWatches(directories)) {
        return EXIT_FAILURE;
    }
    const bench::TemporaryFolder folder(options.place());
    bench::Figures figures;
    platform::run(folder.path(), directories, figures);
    return figures.finish(options);
}
