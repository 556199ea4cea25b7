// Settings when the process is killed at any moment, and when the file system refuses to write.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <functional>

#include "base/system/FileDescriptor.h"
#include "linux/files/JSONFileUserDefaults.h"
#include "linux/files/WholeFile.h"
#include "tests/linux/Unprivileged.h"
#include "tests/support/Mounting.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::Eq;
using testing::Optional;
using Strings = std::vector<std::string>;

constexpr const char* key = "extraFolders";
constexpr const char* fileName = "config/glintmark/defaults.json";

const Strings oldList{"/old/a", "/old/b"};
const Strings newList{"/new"};
constexpr const char* oldText = R"({"extraFolders": ["/old/a", "/old/b"], "another": 1})";

std::optional<Strings> listIn(const std::string& path) {
    return JSONFileUserDefaults(path).stringArray(key);
}

void save(const std::string& path) { JSONFileUserDefaults(path).set(key, newList); }

enum class Outcome { killed, finished };

/// Runs `action` in a child process and kills the child at its `stop`th stop. The child stops at
/// the beginning and at the end of each system call: ptrace(2), PTRACE_SYSCALL.
Outcome killAtStop(int stop, const std::function<void()>& action) {
    const pid_t child = fork();
    if (child == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
            _exit(1);  // without a stop, so the test finds fewer stops than its minimum
        }
        raise(SIGSTOP);
        action();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    for (int i = 0; i < stop && WIFSTOPPED(status); ++i) {
        ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
        waitpid(child, &status, 0);
    }
    if (WIFSTOPPED(status)) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return Outcome::killed;
    }
    return Outcome::finished;
}

/// For each stop of a save in turn: calls `prepare`, kills a save at that stop, and calls `check`.
/// Returns the number of stops.
int cutShortEverywhere(const std::function<std::string()>& prepare,
                       const std::function<void(const std::string& path)>& check) {
    constexpr int maximumStops = 5000;
    for (int stop = 1; stop < maximumStops; ++stop) {
        const auto path = prepare();
        const auto outcome = killAtStop(stop, [&path] { save(path); });
        check(path);
        if (outcome == Outcome::finished) {
            EXPECT_THAT(listIn(path), Optional(newList));
            return stop - 1;
        }
        if (testing::Test::HasFailure()) {
            ADD_FAILURE() << "killed at stop " << stop;
            return stop;
        }
    }
    return maximumStops;
}

class SettingsSurvivalTest : public testing::Test {
protected:
    std::string path() const { return directory_.path(fileName); }

    /// Makes the folder as an earlier save of `text` leaves it, or, if `text` is null, as it is
    /// before the first save. Returns the path of the settings file.
    std::string freshFolder(const char* text) {
        if (access(directory_.path("config").c_str(), F_OK) == 0) {
            directory_.remove("config");
        }
        if (text != nullptr) {
            directory_.write(fileName, text);
        }
        return path();
    }

    /// A save calls at least mkdir, open, write, fsync, rename and fsync (of the folder), and stops
    /// twice at each.
    static constexpr int minimumStops = 2 * 6;

    test::TemporaryDirectory directory_;
};

TEST_F(SettingsSurvivalTest, KilledAtAnySystemCallASaveLeavesTheOldOrTheNewList) {
    int newAlready = 0;
    const int stops =
        cutShortEverywhere([this] { return freshFolder(oldText); },
                           [&](const std::string& path) {
                               const auto list = listIn(path);
                               ASSERT_THAT(list, Optional(AnyOf(Eq(oldList), Eq(newList))));
                               ASSERT_TRUE(readFile(path).find("another") != std::string::npos);
                               newAlready += list == newList ? 1 : 0;
                           });
    EXPECT_GE(stops, minimumStops);
    EXPECT_GT(newAlready, 1);  // some kills happen after the rename
    EXPECT_LT(newAlready, stops);
}

TEST_F(SettingsSurvivalTest, KilledAtAnySystemCallTheFirstSaveLeavesNoListOrTheNewOne) {
    const int stops = cutShortEverywhere(
        [this] { return freshFolder(nullptr); },
        [](const std::string& path) {
            ASSERT_THAT(listIn(path), AnyOf(Eq(std::nullopt), Optional(newList)));
            ASSERT_NE(access(path.c_str(), F_OK) == 0, !listIn(path).has_value());
        });
    EXPECT_GE(stops, minimumStops);
}

TEST_F(SettingsSurvivalTest, KilledAtAnySystemCallASaveKeepsAnUnreadableFile) {
    constexpr auto broken = R"({"extraFolders": ["/old")";
    const int stops = cutShortEverywhere(
        [&] { return freshFolder(broken); },
        [&](const std::string& path) {
            ASSERT_TRUE(readFile(path) == broken || readFile(path + ".bad") == broken);
        });
    EXPECT_GE(stops, minimumStops);
}

/// Writes until nothing more fits.
void fillUp(const std::string& folder) {
    const FileDescriptor file(
        open((folder + "/filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    const std::string bytes(4096, 'x');
    while (write(file.get(), bytes.data(), bytes.size()) > 0) {
    }
}

class SettingsOnAMountTest : public SettingsSurvivalTest {
protected:
    void SetUp() override {
        if (!test::mayMount()) {
            GTEST_SKIP() << "mounting takes root";
        }
    }
};

TEST_F(SettingsOnAMountTest, AFullDiskKeepsTheOldListAndALaterSaveStoresAll) {
    directory_.createDirectories("config");
    const auto test = [this] {
        directory_.write(fileName, oldText);
        fillUp(directory_.path("config"));
        JSONFileUserDefaults defaults(path());
        Strings longList(1000, "/a/folder/that/needs/room");
        defaults.set(key, longList);
        EXPECT_THAT(defaults.stringArray(key), Optional(longList));
        EXPECT_THAT(listIn(path()), Optional(oldList));
        EXPECT_EQ(readFile(path()), oldText);

        ASSERT_EQ(mount("none", directory_.path("config").c_str(), nullptr, MS_REMOUNT, "size=1m"),
                  0);
        longList.emplace_back("/one/more");
        defaults.set(key, longList);
        EXPECT_THAT(listIn(path()), Optional(longList));
    };
    test::withMount(directory_.path("config"), "tmpfs", "size=32k", test);
}

TEST_F(SettingsOnAMountTest, AFullDiskAtTheFirstSaveLeavesNoIncompleteFile) {
    directory_.createDirectories("config");
    const auto test = [this] {
        fillUp(directory_.path("config"));
        JSONFileUserDefaults defaults(path());
        defaults.set(key, Strings(1000, "/a/folder/that/needs/room"));
        EXPECT_NE(access(path().c_str(), F_OK), 0);
        EXPECT_EQ(listIn(path()), std::nullopt);
    };
    test::withMount(directory_.path("config"), "tmpfs", "size=32k", test);
}

TEST_F(SettingsOnAMountTest, AReadOnlyFileSystemKeepsTheOldListAndALaterSaveStoresAll) {
    directory_.createDirectories("config");
    const auto test = [this] {
        const auto folder = directory_.path("config");
        const auto remount = [&folder](unsigned long flags) {
            return mount("none", folder.c_str(), nullptr, MS_REMOUNT | flags, "") == 0;
        };
        directory_.write(fileName, oldText);
        ASSERT_TRUE(remount(MS_RDONLY));
        JSONFileUserDefaults defaults(path());
        defaults.set(key, newList);
        EXPECT_THAT(defaults.stringArray(key), Optional(newList));
        EXPECT_EQ(readFile(path()), oldText);

        ASSERT_TRUE(remount(0));
        defaults.set("another", {"value"});
        EXPECT_THAT(listIn(path()), Optional(newList));
    };
    test::withMount(directory_.path("config"), "tmpfs", "size=1m", test);
}

TEST_F(SettingsSurvivalTest, AReadOnlyFolderKeepsTheOldListAndTheUnreadableFile) {
    directory_.write(fileName, oldText);
    directory_.write("broken/defaults.json", "broken");
    for (const auto* name : {"", "config", "config/glintmark", "broken"}) {
        ASSERT_EQ(chmod(directory_.path(name).c_str(), 0555), 0);
    }
    ASSERT_EQ(chmod(path().c_str(), 0444), 0);
    {
        const Unprivileged unprivileged;
        for (const auto* name : {fileName, "broken/defaults.json"}) {
            JSONFileUserDefaults defaults(directory_.path(name));
            defaults.set(key, newList);
            EXPECT_THAT(defaults.stringArray(key), Optional(newList));
        }
    }
    EXPECT_EQ(readFile(path()), oldText);
    EXPECT_EQ(directory_.read("broken/defaults.json"), "broken");
    for (const auto* name : {"", "config", "config/glintmark", "broken"}) {
        ASSERT_EQ(chmod(directory_.path(name).c_str(), 0755), 0);
    }
}

}  // namespace
}  // namespace glintmark::platform
