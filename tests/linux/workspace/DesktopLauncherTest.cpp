#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "linux/workspace/DesktopLauncher.h"
#include "tests/linux/FakePeer.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::ExitedWithCode;

constexpr auto fileManagerName = "org.freedesktop.FileManager1";
constexpr auto fileManagerPath = "/org/freedesktop/FileManager1";
constexpr auto fileManagerXml = R"(<node><interface name="org.freedesktop.FileManager1">
  <method name="ShowFolders"><arg type="as" direction="in"/><arg type="s" direction="in"/></method>
</interface></node>)";

/// A user's settings in a folder, with programs that record what they are asked to open.
class Settings {
public:
    Settings() {
        std::filesystem::create_directories(folder_ / "bin");
        g_setenv("PATH", (folder_ / "bin:/usr/bin:/bin").c_str(), TRUE);
        for (const char* variable :
             {"XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS"}) {
            g_setenv(variable, folder_.path().c_str(), TRUE);
        }
    }

    void addProgram(const std::string& name) const {
        const std::string path = folder_.write(
            "bin/" + name, "#!/bin/sh\nprintf '%s' \"" + name + " $1\" > '" + opened() + ".new'\n" +
                               "mv '" + opened() + ".new' '" + opened() + "'\n");
        chmod(path.c_str(), 0755);
    }

    /// Makes `program` the default for folders and https addresses.
    void makeDefault(const std::string& program) const {
        addProgram(program);
        folder_.write("applications/test.desktop",
                      "[Desktop Entry]\nType=Application\nName=Test\nExec=" + program +
                          " %u\nMimeType=inode/directory;x-scheme-handler/https;\n");
        folder_.write("mimeapps.list",
                      "[Default Applications]\ninode/directory=test.desktop\n"
                      "x-scheme-handler/https=test.desktop\n");
    }

    bool hasOpened(const std::string& call) const {
        return waitUntil([&] { return folder_.read("opened") == call; });
    }

    const test::TemporaryDirectory& folder() const { return folder_; }

private:
    std::string opened() const { return folder_ / "opened"; }

    test::TemporaryDirectory folder_;
};

// GLib reads a user's settings once, so each of these functions runs in its own process.
[[noreturn]] void finish(bool passed) { std::exit(passed ? 0 : 1); }

[[noreturn]] void openAddressWithDefault() {
    bool passed = false;
    {
        const Settings settings;
        settings.makeDefault("browser");
        settings.addProgram("xdg-open");
        passed = launchDefault("https://example.com/a?b=%20") &&
                 settings.hasOpened("browser https://example.com/a?b=%20");
    }
    finish(passed);
}

[[noreturn]] void openAddressWithoutDefault() {
    bool passed = false;
    {
        const Settings settings;
        settings.addProgram("xdg-open");
        passed = launchDefault("https://example.com/") &&
                 settings.hasOpened("xdg-open https://example.com/");
    }
    finish(passed);
}

[[noreturn]] void openAddressUnderLimits() {
    bool passed = false;
    {
        const Settings settings;
        settings.makeDefault("browser");
        settings.addProgram("xdg-open");
        settings.addProgram("systemd-run");
        prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
        passed = launchDefault("https://example.com/") && settings.hasOpened("systemd-run --user");
    }
    finish(passed);
}

[[noreturn]] void openAddressWithNothing() {
    bool launched = false;
    {
        const Settings settings;
        g_setenv("PATH", (settings.folder() / "bin").c_str(), TRUE);
        launched = launchDefault("https://example.com/");
    }
    finish(!launched);
}

[[noreturn]] void openAddressWithoutPortal() {
    bool passed = false;
    {
        const Settings settings;
        settings.makeDefault("browser");
        const PrivateBus bus;
        const auto connection = bus.connect();
        passed = openAddress(connection.get(), "https://example.com/a") &&
                 settings.hasOpened("browser https://example.com/a");
    }
    finish(passed);
}

[[noreturn]] void openAddressWithoutBus() {
    bool passed = false;
    {
        const Settings settings;
        settings.makeDefault("browser");
        passed = openAddress(nullptr, "https://example.com/a") &&
                 settings.hasOpened("browser https://example.com/a");
    }
    finish(passed);
}

[[noreturn]] void showFolderWithoutBus() {
    bool passed = false;
    {
        const Settings settings;
        settings.makeDefault("files");
        const std::string uri = "file://" + settings.folder().path();
        passed =
            showFolder(nullptr, uri) && settings.hasOpened("files " + settings.folder().path());
    }
    finish(passed);
}

[[noreturn]] void showFolderWithoutFileManager() {
    bool passed = false;
    {
        const Settings settings;
        settings.makeDefault("files");
        const PrivateBus bus;
        const auto connection = bus.connect();
        const std::string uri = "file://" + settings.folder().path();
        passed = showFolder(connection.get(), uri) &&
                 settings.hasOpened("files " + settings.folder().path());
    }
    finish(passed);
}

TEST(DesktopLauncherTest, AnAddressIsOpenedByTheDefaultProgram) {
    EXPECT_EXIT(openAddressWithDefault(), ExitedWithCode(0), "");
}

TEST(DesktopLauncherTest, WithoutADefaultProgramXdgOpenChooses) {
    EXPECT_EXIT(openAddressWithoutDefault(), ExitedWithCode(0), "");
}

TEST(DesktopLauncherTest, UnderTheLimitsOfAUnitAnAddressIsOpenedByAServiceOfItsOwn) {
    EXPECT_EXIT(openAddressUnderLimits(), ExitedWithCode(0), "");
}

TEST(DesktopLauncherTest, WithoutAnyProgramTheRequestFails) {
    EXPECT_EXIT(openAddressWithNothing(), ExitedWithCode(0), "");
}

TEST(DesktopLauncherTest, WithoutAPortalOrABusTheDefaultProgramOpensTheAddress) {
    EXPECT_EXIT(openAddressWithoutPortal(), ExitedWithCode(0), "");
    EXPECT_EXIT(openAddressWithoutBus(), ExitedWithCode(0), "");
}

TEST(DesktopLauncherTest, WithoutABusTheDefaultProgramShowsTheFolder) {
    EXPECT_EXIT(showFolderWithoutBus(), ExitedWithCode(0), "");
}

TEST(DesktopLauncherTest, WithoutAFileManagerOnTheBusTheDefaultProgramShowsTheFolder) {
    EXPECT_EXIT(showFolderWithoutFileManager(), ExitedWithCode(0), "");
}

TEST(DesktopLauncherTest, TheFileManagerOnTheBusIsAskedToShowTheFolder) {
    const PrivateBus bus;
    FakePeer fileManager(bus);
    std::vector<std::string> calls;
    fileManager.offer(
        fileManagerPath, fileManagerXml,
        [&](const std::string& method, GVariant* arguments, GDBusMethodInvocation* invocation) {
            const GStringHandle text(g_variant_print(arguments, FALSE));
            calls.push_back(method + text.get());
            g_dbus_method_invocation_return_value(invocation, nullptr);
        });
    fileManager.ownName(fileManagerName);
    const auto connection = bus.connect();
    EXPECT_TRUE(showFolder(connection.get(), "file:///home/kim/My%20Links"));
    ASSERT_TRUE(waitUntil([&] { return !calls.empty(); }));
    EXPECT_THAT(calls, ElementsAre("ShowFolders(['file:///home/kim/My%20Links'], '')"));
}

}  // namespace
}  // namespace glintmark::platform
