#include "link/NewCommand.h"

#include <sys/stat.h>
#include <sysexits.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <future>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include "base/system/FilePath.h"
#include "base/system/LinkFile.h"
#include "link/FileWriting.h"
#include "link/LinkFile.h"
#include "link/OpenCommand.h"
#include "link/PageTitle.h"
#include "link/Paths.h"
#include "link/Texts.h"
#include "platform/FileManager.h"
#include "platform/Platform.h"

namespace glintmark::link {

namespace {

using Complain = std::function<void(const std::string&)>;

constexpr std::size_t maximumNameBytes = 255;  // of file systems on Linux
constexpr int maximumNumber = 9999;

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

int failed(const std::string& path, Written written, const Complain& complain) {
    const std::string reason =
        written == Written::exists ? text("error.exists") : std::generic_category().message(errno);
    complain(path + ": " + reason);
    return EX_CANTCREAT;
}

int succeeded(const std::string& path) {
    const std::string line = path + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    return EX_OK;
}

/// Writes the file `name`.webloc in `folder`; if that is taken, with " 2", " 3" and so on behind
/// the name.
int writeNamed(const std::string& folder, const std::string& name, const URL& url, bool mayReplace,
               const Complain& complain) {
    const std::string bytes = weblocBytes(url.absoluteString());
    std::string path;
    Written written = Written::exists;
    for (int number = 1; number <= maximumNumber && written == Written::exists; ++number) {
        const std::string suffix =
            (number == 1 ? "" : " " + std::to_string(number)) + std::string(linkFileSuffix);
        path = appendPathComponent(folder,
                                   fileNameFrom(name, maximumNameBytes - suffix.size()) + suffix);
        written = writeNewFile(path, bytes, mayReplace);
    }
    return written == Written::done ? succeeded(path) : failed(path, written, complain);
}

/// The title of the page, or else the host.
std::string nameFor(const URL& url, std::chrono::milliseconds maximumWait) {
    const auto title = std::make_shared<std::promise<std::optional<std::string>>>();
    auto found = title->get_future();
    fetchTitle(url,
               [title](std::optional<std::string> text) { title->set_value(std::move(text)); });
    std::string name;
    if (found.wait_for(maximumWait) == std::future_status::ready) {
        name = fileNameFrom(found.get().value_or(""), maximumNameBytes);
    }
    if (name.empty()) {
        name = fileNameFrom(*url.host(), maximumNameBytes);
    }
    return name.empty() ? "link" : name;
}

int createOne(const std::string& link, const std::string& target, bool mayReplace,
              const Complain& complain, std::chrono::milliseconds maximumWait) {
    const WebAddress address = webAddress(link);
    if (!address.url) {
        complain(refusal(link, address.scheme));
        return EX_DATAERR;
    }
    if (isFolder(target)) {
        return writeNamed(target, nameFor(*address.url, maximumWait), *address.url, mayReplace,
                          complain);
    }
    const std::string path =
        target.ends_with(linkFileSuffix) ? target : target + std::string(linkFileSuffix);
    const Written written =
        writeNewFile(path, weblocBytes(address.url->absoluteString()), mayReplace);
    return written == Written::done ? succeeded(path) : failed(path, written, complain);
}

/// Makes a link file beside one of another form, of the same name.
int createFrom(const std::string& file, bool mayReplace, const Complain& complain) {
    const auto kind = linkFileKind(file);
    const bool isOtherForm = kind && *kind != LinkFileKind::webloc;
    const LinkFileContents contents = readLinkFile(file);
    if (!contents.wasRead) {
        complain(file + ": " + text("icon.unreadable"));
        return EX_NOINPUT;
    }
    if (!isOtherForm || !contents.link) {
        complain(file + ": " + text("error.otherForm"));
        return EX_DATAERR;
    }
    const WebAddress address = webAddress(*contents.link);
    if (!address.url) {
        complain(refusal(file, address.scheme));
        return EX_DATAERR;
    }
    const auto slash = file.rfind('/');
    const std::string folder = file.substr(0, slash + 1);
    const std::string stem = file.substr(slash + 1, file.rfind('.') - slash - 1);
    const bool isName = !fileNameFrom(stem, maximumNameBytes).empty();
    return writeNamed(folder, isName ? stem : *address.url->host(), *address.url, mayReplace,
                      complain);
}

}  // namespace

int createLinkFiles(const Command& command, const Complain& complain,
                    std::chrono::milliseconds maximumWait) {
    int status = EX_OK;
    const auto note = [&status](int outcome) { status = status == EX_OK ? outcome : status; };
    if (command.fromFiles) {
        for (const auto& argument : command.arguments) {
            note(createFrom(absolutePath(argument), command.mayReplace, complain));
        }
    } else if (command.onDesktop) {
        const std::string desktop = platform::services().fileManager.desktopAndDownloads().front();
        for (const auto& link : command.arguments) {
            note(createOne(link, desktop, command.mayReplace, complain, maximumWait));
        }
    } else {
        const auto& arguments = command.arguments;
        const std::string target = absolutePath(arguments.size() > 1 ? arguments[1] : ".");
        note(createOne(arguments.front(), target, command.mayReplace, complain, maximumWait));
    }
    return status;
}

}  // namespace glintmark::link
