#include "linux/workspace/FileTypeRegistration.h"

#include <glib.h>
#include <glib/gstdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "linux/files/WholeFile.h"
#include "linux/glib/GLibHandles.h"
#include "linux/workspace/Command.h"

namespace glintmark::platform {

namespace {

constexpr auto typeFile = "com.quorvel.Glintmark.xml";
constexpr auto thumbnailerFile = "com.quorvel.Glintmark.thumbnailer";
constexpr auto kdeServiceFile = "glintmark-webloc.desktop";
constexpr auto thumbnailerProgram = "glintmark-thumbnailer";
constexpr int folderMode = 0755;

/// True if another user than root can replace what is at `path` or in it. Others may write to a
/// sticky folder: it keeps what is not theirs. A group counts as others unless it has the user's
/// id, which makes it the user's alone (pam_umask(8), "usergroups").
bool othersCanChange(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || (status.st_uid != 0 && status.st_uid != geteuid())) {
        return true;
    }
    const bool isOwnGroup = status.st_gid == getegid() && getegid() == geteuid();
    const mode_t others = isOwnGroup ? S_IWOTH : S_IWOTH | S_IWGRP;
    const bool keepsEntries = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    return (status.st_mode & others) != 0 && !keepsEntries;
}

/// The first of `path` and the folders above it that others can change. Empty if there is none.
std::string partThatOthersCanChange(std::string path) {
    while (!path.empty()) {
        if (othersCanChange(path)) {
            return path;
        }
        path.erase(path.rfind('/'));
    }
    return othersCanChange("/") ? "/" : "";
}

/// `text` as a value of a key file (Desktop Entry Specification, "Possible value types").
std::string escapedForKeyFile(const std::string& text) {
    std::string escaped;
    for (const char byte : text) {
        if (byte == '\n') {
            escaped += "\\n";
        } else {
            escaped.append(byte == '\\' ? 2 : 1, byte);
        }
    }
    return escaped;
}

/// `path` quoted as an argument of an Exec line (freedesktop.org, Desktop Entry Specification, "The
/// Exec key"). A doubled percent sign stands for one. Thumbnail services remove the quotes as a
/// shell does.
std::string quotedForExec(const std::string& path) {
    std::string doubled;
    for (const char byte : path) {
        doubled.append(byte == '%' ? 2 : 1, byte);
    }
    const GStringHandle quoted(g_shell_quote(doubled.c_str()));
    return quoted.get();
}

/// The description of the thumbnailer with the path of the program in `folder`.
std::string withProgramIn(const std::string& folder, std::string description) {
    const std::string program = folder + "/" + thumbnailerProgram;
    const auto fillIn = [&](const std::string& key, const std::string& value) {
        const std::string entry = "\n" + key + "=" + thumbnailerProgram;
        if (const auto at = description.find(entry); at != std::string::npos) {
            description.replace(at, entry.size(), "\n" + key + "=" + escapedForKeyFile(value));
        }
    };
    fillIn("TryExec", program);
    fillIn("Exec", quotedForExec(program));
    return description;
}

std::string thumbnailerEntry(const std::string& programFolder) {
    return withProgramIn(programFolder, readFile(programFolder + "/filetype/" + thumbnailerFile));
}

enum class Placement { unchanged, written, failed };

Placement place(const std::string& folder, const std::string& name, const std::string& text) {
    const std::string path = folder + "/" + name;
    if (readFile(path) == text) {
        return Placement::unchanged;
    }
    const bool written =
        g_mkdir_with_parents(folder.c_str(), folderMode) == 0 && writeFileAtomically(path, text);
    return written ? Placement::written : Placement::failed;
}

}  // namespace

bool registerFileTypeOfBuildTree(const std::string& programFolder, const std::string& dataHome) {
    const std::string source = programFolder + "/filetype/";
    const std::string type = readFile(source + typeFile);
    if (type.empty()) {
        return false;
    }
    const std::string thumbnailer = programFolder + "/" + thumbnailerProgram;
    if (const auto open = partThatOthersCanChange(thumbnailer); !open.empty()) {
        std::fprintf(stderr,
                     "glintmark runs from its build tree: no thumbnailer is registered, because "
                     "others can change %s\n",
                     open.c_str());
        return false;
    }
    const Placement placed[] = {
        place(dataHome + "/thumbnailers", thumbnailerFile, thumbnailerEntry(programFolder)),
        place(dataHome + "/kservices5", kdeServiceFile, readFile(source + kdeServiceFile)),
        place(dataHome + "/mime/packages", typeFile, type),
    };
    bool changed = false;
    for (const Placement result : placed) {
        if (result == Placement::failed) {
            return false;
        }
        changed = changed || result == Placement::written;
    }
    if (changed) {
        startCommand("update-mime-database", dataHome + "/mime");
        std::fprintf(stderr,
                     "glintmark runs from its build tree: the type of link files is registered "
                     "below %s\n",
                     dataHome.c_str());
    }
    return true;
}

void removeThumbnailerOfBuildTree(const std::string& programFolder, const std::string& dataHome) {
    const std::string path = dataHome + "/thumbnailers/" + thumbnailerFile;
    const std::string entry = thumbnailerEntry(programFolder);
    if (!entry.empty() && readFile(path) == entry) {
        g_unlink(path.c_str());
    }
}

}  // namespace glintmark::platform
