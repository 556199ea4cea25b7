#include "linux/workspace/FileTypeRegistration.h"

#include <glib.h>
#include <glib/gstdio.h>

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
            description.replace(at, entry.size(), "\n" + key + "=" + value);
        }
    };
    fillIn("TryExec", program);
    fillIn("Exec", quotedForExec(program));
    return description;
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
    const Placement placed[] = {
        place(dataHome + "/thumbnailers", thumbnailerFile,
              withProgramIn(programFolder, readFile(source + thumbnailerFile))),
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

}  // namespace glintmark::platform
