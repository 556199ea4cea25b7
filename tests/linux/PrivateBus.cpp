#include "tests/linux/PrivateBus.h"

#include <glib/gstdio.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>

#include "tests/linux/MainLoop.h"

namespace glintmark::platform {

namespace {

constexpr auto configuration = R"(<busconfig>
  <type>session</type>
  <listen>%s</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
  </policy>
</busconfig>
)";

}  // namespace

PrivateBus::PrivateBus(Begin begin) {
    const GStringHandle folder(g_dir_make_tmp("glintmark-bus-XXXXXX", nullptr));
    folder_ = folder.get();
    address_ = "unix:path=" + folder_ + "/bus";
    const GStringHandle text(g_strdup_printf(configuration, address_.c_str()));
    g_file_set_contents((folder_ + "/bus.conf").c_str(), text.get(), -1, nullptr);
    g_setenv("DBUS_SESSION_BUS_ADDRESS", address_.c_str(), TRUE);
    if (begin == Begin::started) {
        start();
    }
}

PrivateBus::~PrivateBus() {
    stop();
    g_unsetenv("DBUS_SESSION_BUS_ADDRESS");
    g_unlink((folder_ + "/bus.conf").c_str());
    g_rmdir(folder_.c_str());
}

void PrivateBus::start() {
    GErrorOut error;
    constexpr auto flags = static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                         G_SUBPROCESS_FLAGS_STDERR_SILENCE);
    daemon_.reset(g_subprocess_new(flags, error.out(), "dbus-daemon",
                                   ("--config-file=" + folder_ + "/bus.conf").c_str(), "--nofork",
                                   "--nopidfile", "--print-address=1", nullptr));
    ASSERT_NE(daemon_, nullptr) << error.get()->message;
    // The daemon prints its address once its socket listens.
    std::array<char, 1> byte{};
    EXPECT_EQ(g_input_stream_read(g_subprocess_get_stdout_pipe(daemon_.get()), byte.data(), 1,
                                  nullptr, nullptr),
              1);
}

void PrivateBus::stop() {
    if (daemon_ != nullptr) {
        g_subprocess_force_exit(daemon_.get());
        g_subprocess_wait(daemon_.get(), nullptr, nullptr);
        daemon_.reset();
        g_unlink((folder_ + "/bus").c_str());
    }
}

void PrivateBus::stop(const SessionBus& program) {
    stop();
    EXPECT_TRUE(waitUntil([&] { return program.connection() == nullptr; }));
}

void PrivateBus::pause() { g_subprocess_send_signal(daemon_.get(), SIGSTOP); }

GObjectHandle<GDBusConnection> PrivateBus::connect() const {
    constexpr auto flags =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    GErrorOut error;
    GObjectHandle<GDBusConnection> connection(g_dbus_connection_new_for_address_sync(
        address_.c_str(), flags, nullptr, nullptr, error.out()));
    EXPECT_NE(connection, nullptr) << error.get()->message;
    return connection;
}

}  // namespace glintmark::platform
