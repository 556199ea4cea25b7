// Watching a tree of directories: the time until all are watched, beside that of a bare loop that
// opens, reads and watches each, and the memory that it takes. Fails when it takes more than 1.2
// times as long, or not all are watched (fs.inotify.max_user_watches must allow that).
//
// WatchingBench [--json FILE] [DIRECTORIES [FOLDER]]: how many (100,000), and where to make them
// ($TMPDIR).

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "bench/Figures.h"
#include "platform/linux/files/FileDescriptor.h"
#include "platform/linux/watching/TreeWatches.h"

namespace glintmark::platform {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int rounds = 7;
constexpr int directoriesInEach = 8;
constexpr int filesInEach = 3;
constexpr double maximumRatio = 1.2;

/// A tree of `count` directories, each with some directories, until they are used up, and files.
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

/// The least that watching takes: open, read and watch each directory.
std::size_t watchBarely(int inotify, std::string& path) {
    std::size_t count = 1;
    ::inotify_add_watch(inotify, path.c_str(), IN_CREATE | IN_MOVED_TO | IN_MOVE_SELF);
    DIR* const directory = ::opendir(path.c_str());
    const auto length = path.size();
    while (const dirent* entry = ::readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (entry->d_type == DT_DIR && name != "." && name != "..") {
            path.append("/").append(name);
            count += watchBarely(inotify, path);
            path.resize(length);
        }
    }
    ::closedir(directory);
    return count;
}

Milliseconds bareLoop(std::string folder, std::size_t& count) {
    const FileDescriptor inotify(::inotify_init1(IN_CLOEXEC));
    const auto begin = Clock::now();
    count = watchBarely(inotify.get(), folder);
    return Clock::now() - begin;
}

Milliseconds treeWatches(const std::string& folder, std::size_t& count, double& bytes) {
    const auto before = ::mallinfo2();
    TreeWatches trees(*Inotify::make(), {folder}, [](std::string_view note) {
        std::fwrite(note.data(), 1, note.size(), stderr);
    });
    const auto begin = Clock::now();
    trees.takeUpFolders();
    while (trees.isWalking()) {
        trees.walkOn();
        trees.readEvents();
    }
    const Milliseconds taken = Clock::now() - begin;
    const auto after = ::mallinfo2();
    bytes = static_cast<double>(after.uordblks + after.hblkhd - before.uordblks - before.hblkhd);
    count = trees.watchCount();
    return taken;
}

Milliseconds median(std::vector<Milliseconds> times) {
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
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
    figures.add("directories", static_cast<double>(bareCount), "");
    figures.add("not watched", static_cast<double>(bareCount - count), "", 0);
    figures.add("bare loop", median(bare).count(), "ms");
    figures.add("stream's walk", median(ours).count(), "ms");
    figures.add("ratio", median(ours) / median(bare), "", maximumRatio);
    figures.add("memory a directory", bytes / static_cast<double>(count), "bytes");
}

/// Whether the system gives as many watches as are needed; says so when it does not.
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
    namespace fs = std::filesystem;
    const char* json = nullptr;
    if (argc > 2 && std::strcmp(argv[1], "--json") == 0) {
        json = argv[2];
        argv += 2;
        argc -= 2;
    }
    const int directories = argc > 1 ? std::atoi(argv[1]) : 100'000;
    const fs::path place = argc > 2 ? fs::path(argv[2]) : fs::temp_directory_path();
    if (!glintmark::platform::allowsWatches(directories)) {
        return EXIT_FAILURE;
    }
    auto folder = (place / "glintmark-bench.XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr) {
        std::perror("mkdtemp");
        return EXIT_FAILURE;
    }
    glintmark::bench::Figures figures("walk");
    glintmark::platform::run(folder, directories, figures);
    fs::remove_all(folder);
    const bool written = json == nullptr || figures.write(json);
    return figures.passed() && written ? EXIT_SUCCESS : EXIT_FAILURE;
}
