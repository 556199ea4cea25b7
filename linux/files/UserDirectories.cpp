#include "linux/files/UserDirectories.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <utility>

namespace glintmark::platform {

namespace {

constexpr std::string_view homeVariable = "$HOME";
constexpr std::string_view blanks = " \t";

/// Removes `prefix` from the beginning of `text`. False if it is not there.
bool skip(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

void skipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
}

/// What stands before the closing quote, without the backslashes. Absent without a closing quote.
std::optional<std::string> unquoted(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') {
            return value;
        }
        if (text[i] == '\\' && ++i == text.size()) {
            break;
        }
        value += text[i];
    }
    return std::nullopt;
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return path;
}

/// The folder that a line `name="..."` names; absent for any other line.
std::optional<std::string> folderIn(std::string_view line, std::string_view name,
                                    const std::string& home) {
    skipBlanks(line);
    if (!skip(line, name)) {
        return std::nullopt;
    }
    skipBlanks(line);
    if (!skip(line, "=")) {
        return std::nullopt;
    }
    skipBlanks(line);
    if (!skip(line, "\"")) {
        return std::nullopt;
    }
    const bool isBelowHome = skip(line, homeVariable);
    auto value = unquoted(line);
    if (!value || value->find('\0') != std::string::npos ||
        !(value->starts_with('/') || (isBelowHome && value->empty()))) {
        return std::nullopt;
    }
    if (isBelowHome && home != "/") {
        value->insert(0, home);
    }
    return withoutTrailingSlashes(value->empty() ? home : *std::move(value));
}

/// The folder that the last such line names; absent if there is none or it is the home folder,
/// which means that the user wants none.
std::optional<std::string> lastFolderIn(std::string_view text, std::string_view name,
                                        const std::string& home) {
    std::optional<std::string> folder;
    while (!text.empty()) {
        const auto line = text.substr(0, text.find('\n'));
        if (auto found = folderIn(line, name, home)) {
            folder = std::move(found);
        }
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return folder == home ? std::nullopt : folder;
}

}  // namespace

std::array<std::string, 2> desktopAndDownloads(std::string_view userDirs, const std::string& home) {
    const auto defaultDesktop = home + "/Desktop";
    const auto defaultDownloads = home + "/Downloads";
    const auto desktop = lastFolderIn(userDirs, "XDG_DESKTOP_DIR", home).value_or(defaultDesktop);
    auto downloads = lastFolderIn(userDirs, "XDG_DOWNLOAD_DIR", home).value_or(defaultDownloads);
    if (downloads == desktop) {
        downloads = desktop == defaultDownloads ? defaultDesktop : defaultDownloads;
    }
    return {desktop, std::move(downloads)};
}

std::string userDirsFile(const std::string& home) {
    const char* config = std::getenv("XDG_CONFIG_HOME");  // NOLINT(concurrency-mt-unsafe)
    const bool isAbsolute = config != nullptr && config[0] == '/';
    return (isAbsolute ? std::string(config) : home + "/.config") + "/user-dirs.dirs";
}

}  // namespace glintmark::platform
