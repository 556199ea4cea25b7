#include "link/IconCommand.h"

#include <glib-unix.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>

#include "link/IconReport.h"
#include "link/IconRun.h"
#include "link/Texts.h"
#include "linux/glib/GLibHandles.h"
#include "linux/workspace/DesktopWorkspace.h"
#include "linux/workspace/IconMetadata.h"
#include "linux/workspace/IconStore.h"
#include "platform/FileManager.h"
#include "platform/Platform.h"

namespace glintmark::link {

namespace {

constexpr int signalStatus = 128;

// The answers of the metadata daemon and the signals to open windows come after the last icon.
constexpr std::chrono::seconds maximumWaitForDesktop{5};

std::size_t columnsOf(int terminal) {
    constexpr std::size_t defaultColumns = 80;
    winsize size{};
    const bool isKnown = ::ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : defaultColumns;
}

/// The output of a run.
class Screen {
public:
    Screen(std::size_t files, bool asJSON)
        : report_(files), asJSON_(asJSON), hasBar_(!asJSON && ::isatty(STDOUT_FILENO) == 1) {}

    void add(const IconResult& result) {
        report_.add(result);
        const auto line = IconReport::line(result);
        if (asJSON_) {
            print(IconReport::jsonLine(result) + "\n");
        } else if (!line.isError) {
            print(hasBar_ && result.outcome == IconResult::Outcome::set ? "" : line.text + "\n");
        }
        const bool isInterrupted = result.outcome == IconResult::Outcome::interrupted;
        if (line.isError && !isInterrupted) {  // the end says how many were
            clearBar();
            complain(line.text);
        }
        showBar();
    }

    void end() {
        clearBar();
        print(asJSON_ ? report_.jsonSummary() + "\n" : report_.summary());
    }

    const IconReport& report() const { return report_; }

private:
    void print(const std::string& text) {
        if (!text.empty()) {
            clearBar();
            std::fwrite(text.data(), 1, text.size(), stdout);
            std::fflush(stdout);
        }
    }

    /// ECMA-48: carriage return, then "erase in line".
    void clearBar() {
        if (isBarShown_) {
            std::fputs("\r\033[K", stdout);
            std::fflush(stdout);
            isBarShown_ = false;
        }
    }

    void showBar() {
        if (hasBar_) {
            const std::string bar = "\r" + report_.bar(columnsOf(STDOUT_FILENO) - 1) + "\033[K";
            std::fputs(bar.c_str(), stdout);
            std::fflush(stdout);
            isBarShown_ = true;
        }
    }

    IconReport report_;
    const bool asJSON_;
    const bool hasBar_;
    bool isBarShown_ = false;
};

/// True if the file shows an icon that this program or a file manager has set.
bool hasIcon(const std::string& path, const platform::IconStore& store) {
    if (linkFileKind(path) == LinkFileKind::desktopEntry) {
        const auto bytes = platform::services().fileManager.contents(path);
        return bytes && iconInDesktopEntry(*bytes);
    }
    const auto name = platform::readIconName(path);
    return (name && ::access(store.pathOf(*name).c_str(), R_OK) == 0) ||
           platform::IconMetadata::readThroughGIO(path).has_value();
}

/// The first signal that came; a second one ends the process at once.
struct Interruption {
    int signal = 0;
    std::function<void()> stop;
};

platform::GSourceId stopAt(int signal, GSourceFunc react, Interruption& interruption) {
    return platform::GSourceId(g_unix_signal_add(signal, react, &interruption));
}

template <int number>
gboolean interrupt(gpointer data) {
    auto* interruption = static_cast<Interruption*>(data);
    if (interruption->signal != 0) {
        ::_exit(signalStatus + number);
    }
    interruption->signal = number;
    interruption->stop();
    return G_SOURCE_CONTINUE;
}

/// Iterates the main context until `isDone`, but not longer than `limit`.
void iterateUntil(const std::function<bool()>& isDone, std::chrono::milliseconds limit) {
    bool isOver = false;
    const auto timeOut = [](gpointer flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_CONTINUE;
    };
    const platform::GSourceId timer(
        g_timeout_add(static_cast<guint>(limit.count()), timeOut, &isOver));
    while (!isDone() && !isOver) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

}  // namespace

int setIcons(const Command& command, platform::DesktopWorkspace& workspace,
             const std::function<void(const std::string& line)>& summarise) {
    auto tasks = iconTasks(command.arguments, command.isRecursive);
    Screen screen(tasks.size(), command.asJSON);
    const platform::IconStore store(platform::WorkspaceFolders::ofUser().dataHome);
    IconRun::Options options;
    options.isDryRun = command.isDryRun;
    options.isMissingOnly = command.isMissingOnly;
    options.hasIcon = [&store](const std::string& path) { return hasIcon(path, store); };
    options.storedPicture = [&workspace](const platform::PreparedIcon& icon) {
        return workspace.storedPicture(icon);
    };
    bool hasEnded = false;
    const auto run = std::make_shared<IconRun>(
        std::move(tasks), options, [&screen](const IconResult& result) { screen.add(result); },
        [&hasEnded] { hasEnded = true; });
    Interruption interruption{.stop = [&run] { run->stop(); }};
    const auto onInterrupt = stopAt(SIGINT, &interrupt<SIGINT>, interruption);
    const auto onTermination = stopAt(SIGTERM, &interrupt<SIGTERM>, interruption);
    const auto onHangup = stopAt(SIGHUP, &interrupt<SIGHUP>, interruption);
    run->start();
    while (!hasEnded) {
        g_main_context_iteration(nullptr, TRUE);
    }
    iterateUntil([&workspace] { return workspace.isIdle(); }, maximumWaitForDesktop);
    screen.end();
    std::string summary = screen.report().summary();
    std::replace(summary.begin(), summary.end(), '\n', ' ');
    summarise(summary);
    return interruption.signal != 0 ? signalStatus + interruption.signal : screen.report().status();
}

}  // namespace glintmark::link
