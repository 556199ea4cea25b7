#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/workspace/WindowRefresh.h"
#include "tests/linux/MainLoop.h"
#include "tests/linux/PrivateBus.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status;
}

void setTimes(const std::string& path, struct timespec read, struct timespec written) {
    const struct timespec times[2] = {read, written};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

TEST(WindowRefreshTest, OnlyTheFractionOfTheTimeIsDropped) {
    const test::TemporaryDirectory folder;
    const std::string path = folder.write("a.webloc");
    setTimes(path, {1'600'000'000, 123'456'789}, {1'700'000'000, 987'654'321});
    EXPECT_TRUE(WindowRefresh::dropTimeFraction(path, statusOf(path)));
    const struct stat after = statusOf(path);
    EXPECT_EQ(after.st_mtim.tv_sec, 1'700'000'000);
    EXPECT_EQ(after.st_mtim.tv_nsec, 0);
    EXPECT_EQ(after.st_atim.tv_sec, 1'600'000'000);
    EXPECT_EQ(after.st_atim.tv_nsec, 123'456'789);
}

TEST(WindowRefreshTest, AFileWrittenMeanwhileKeepsItsTime) {
    const test::TemporaryDirectory folder;
    const std::string path = folder.write("a.webloc");
    const struct stat before = statusOf(path);
    setTimes(path, before.st_atim, {1'700'000'000, 5});
    EXPECT_TRUE(WindowRefresh::dropTimeFraction(path, before));
    EXPECT_EQ(statusOf(path).st_mtim.tv_nsec, 5);
}

TEST(WindowRefreshTest, AFileThatIsGoneIsLeftAlone) {
    const test::TemporaryDirectory folder;
    EXPECT_TRUE(WindowRefresh::dropTimeFraction(folder / "a.webloc", statusOf(folder.path())));
}

/// Receives the signals that KDE's directory listers receive.
class Listener {
public:
    explicit Listener(const PrivateBus& bus) : connection_(bus.connect()) {
        const auto receive = [](GDBusConnection*, const gchar*, const gchar* path, const gchar*,
                                const gchar* signal, GVariant* arguments, gpointer self) {
            const GStringHandle text(g_variant_print(arguments, FALSE));
            static_cast<Listener*>(self)->received_.push_back(std::string(path) + " " + signal +
                                                              text.get());
            static_cast<Listener*>(self)->times_.push_back(g_get_monotonic_time());
        };
        g_dbus_connection_signal_subscribe(connection_.get(), nullptr, "org.kde.KDirNotify",
                                           nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                           receive, this, nullptr);
        // When the bus answers this call, it has processed the subscription.
        const GVariantHandle answer(g_dbus_connection_call_sync(
            connection_.get(), "org.freedesktop.DBus", "/", "org.freedesktop.DBus", "GetId",
            nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    }
    const std::vector<std::string>& received() const { return received_; }
    const std::vector<gint64>& times() const { return times_; }

private:
    GObjectHandle<GDBusConnection> connection_;
    std::vector<std::string> received_;
    std::vector<gint64> times_;
};

TEST(WindowRefreshTest, KDEIsSignalledARemovalAndThenAnAddition) {
    const PrivateBus daemon;
    Listener listener(daemon);
    SessionBus bus;
    WindowRefresh windows(bus);
    windows.signalChange({"file:///nowhere/a%20b.webloc"});
    ASSERT_TRUE(waitUntil([&] { return listener.received().size() == 2; }));
    EXPECT_THAT(listener.received(),
                ElementsAre("/ FilesRemoved(['file:///nowhere/a%20b.webloc'],)",
                            "/ FilesAdded('file:///nowhere',)"));
    EXPECT_GT(listener.times()[1] - listener.times()[0], 200'000);
}

TEST(WindowRefreshTest, FilesOfOneFolderShareOneSignalOfAddition) {
    const PrivateBus daemon;
    Listener listener(daemon);
    SessionBus bus;
    {
        WindowRefresh windows(bus);
        windows.signalChange({"file:///one/a.webloc"});
        windows.signalChange({"file:///one/b.webloc"});
        windows.signalChange({"file:///two/c.webloc"});
        ASSERT_TRUE(waitUntil([&] {
            return !listener.received().empty() &&
                   listener.received().back() == "/ FilesAdded('file:///two',)";
        }));
    }
    EXPECT_EQ(listener.received()[0], "/ FilesRemoved(['file:///one/a.webloc'],)");
    EXPECT_EQ(listener.received()[1], "/ FilesRemoved(['file:///one/b.webloc'],)");
    EXPECT_EQ(listener.received()[2], "/ FilesRemoved(['file:///two/c.webloc'],)");
    EXPECT_EQ(listener.received()[3], "/ FilesAdded('file:///one',)");
}

TEST(WindowRefreshTest, WithoutABusNothingIsSignalled) {
    const PrivateBus daemon(PrivateBus::Begin::stopped);
    SessionBus bus;
    WindowRefresh windows(bus);
    windows.signalChange({"file:///nowhere/a.webloc"});
    runPending();
    EXPECT_EQ(bus.connection(), nullptr);
}

}  // namespace
}  // namespace glintmark::platform
