#include "linux/workspace/AppliedIcons.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <string_view>
#include <unordered_set>

#include "base/system/FileDescriptor.h"
#include "linux/files/FileURI.h"
#include "linux/files/PosixFileManager.h"
#include "linux/files/WholeFile.h"
#include "linux/workspace/IconStore.h"

namespace glintmark::platform {

namespace {

constexpr mode_t fileMode = 0600;

constexpr int maximumAttempts = 8;  // a record is replaced about once a day

/// True if `path` leads to the open file.
bool isAt(int file, const std::string& path) {
    struct stat held {};
    struct stat there {};
    return fstat(file, &held) == 0 && stat(path.c_str(), &there) == 0 &&
           held.st_dev == there.st_dev && held.st_ino == there.st_ino;
}

std::string lineOf(const AppliedIcon& applied) {
    return applied.name + " " + glibFileURI(applied.path) + "\n";
}

AppliedIcon parsedLine(std::string_view line) {
    const auto blank = line.find(' ');
    if (blank == std::string_view::npos || !IconStore::isName(line.substr(0, blank))) {
        return {};
    }
    return {std::string(line.substr(0, blank)),
            pathOfLocation(std::string(line.substr(blank + 1)))};
}

}  // namespace

void AppliedIcons::add(const AppliedIcon& applied) {
    const std::string line = lineOf(applied);
    const std::scoped_lock lock(mutex_);
    for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
        const FileDescriptor file(
            open(file_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, fileMode));
        if (!file) {
            return;
        }
        const off_t end = lseek(file.get(), 0, SEEK_END);
        const auto written = write(file.get(), line.data(), line.size());
        if (written != static_cast<ssize_t>(line.size())) {
            // Otherwise the next line would continue the incomplete one.
            static_cast<void>(!ftruncate(file.get(), end));
        }
        if (isAt(file.get(), file_)) {
            return;
        }
        // Another process has replaced the record meanwhile, perhaps without the line.
    }
}

std::optional<std::vector<AppliedIcon>> AppliedIcons::all() const {
    const std::scoped_lock lock(mutex_);
    return read();
}

std::optional<std::vector<AppliedIcon>> AppliedIcons::read() const {
    std::vector<AppliedIcon> entries;
    errno = 0;
    const auto text = PosixFileManager().contents(file_);
    if (!text) {
        return errno == ENOENT ? std::optional(entries) : std::nullopt;
    }
    std::unordered_set<std::string> seen;
    // From the end: the last line about a file is the valid one.
    for (std::string_view rest = *text; !rest.empty();) {
        const auto end = rest.back() == '\n' ? rest.size() - 1 : rest.size();
        const auto newline = end == 0 ? std::string_view::npos : rest.rfind('\n', end - 1);
        const auto begin = newline == std::string_view::npos ? 0 : newline + 1;
        AppliedIcon entry = parsedLine(rest.substr(begin, end - begin));
        rest = rest.substr(0, begin);
        if (!entry.path.empty() && seen.insert(entry.path).second) {
            entries.push_back(std::move(entry));
        }
    }
    std::reverse(entries.begin(), entries.end());
    return entries;
}

void AppliedIcons::filter(const std::function<bool(const AppliedIcon&)>& keep) {
    const std::scoped_lock lock(mutex_);
    const FileDescriptor replaced(open(file_.c_str(), O_RDONLY | O_CLOEXEC));
    const off_t end = replaced ? lseek(replaced.get(), 0, SEEK_END) : 0;
    const auto entries = read();
    if (!entries) {
        return;
    }
    std::string text;
    for (const auto& entry : *entries) {
        if (keep(entry)) {
            text += lineOf(entry);
        }
    }
    if (!writeFileAtomically(file_, text) || !replaced ||
        lseek(replaced.get(), end, SEEK_SET) < 0) {
        return;
    }
    // Another process may have added lines to the old record since it was read. Those that it adds
    // from now on it adds again, to the new one (`add`). A line that stands twice does no harm.
    const auto added = readToEnd(replaced.get(), 0);
    const FileDescriptor file(open(file_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    if (added && !added->empty() && file) {
        static_cast<void>(!write(file.get(), added->data(), added->size()));
    }
}

}  // namespace glintmark::platform
