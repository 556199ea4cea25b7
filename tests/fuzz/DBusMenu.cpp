#include "linux/statusitem/DBusMenu.h"

#include <sys/socket.h>

#include <array>
#include <string>

#include "tests/fuzz/DBusValues.h"
#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using namespace platform;

namespace {

struct Method {
    const char* name;
    const char* type;
};

constexpr std::array methods{
    Method{"GetLayout", "(iias)"},      Method{"GetGroupProperties", "(aias)"},
    Method{"GetProperty", "(is)"},      Method{"Event", "(isvu)"},
    Method{"EventGroup", "(a(isvu))"},  Method{"AboutToShow", "(i)"},
    Method{"AboutToShowGroup", "(ai)"}, Method{"NoSuchMethod", "()"}};

GObjectHandle<GIOStream> streamOf(int socket) {
    const GObjectHandle<GSocket> owner(g_socket_new_from_fd(socket, nullptr));
    return GObjectHandle<GIOStream>(
        G_IO_STREAM(g_socket_connection_factory_create_connection(owner.get())));
}

/// A panel and the program, connected without a bus.
class Pair {
public:
    Pair() {
        std::array<int, 2> ends{};
        fuzz::require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0);
        const GStringHandle guid(g_dbus_generate_guid());
        const auto made = [](GObject*, GAsyncResult* result, gpointer out) {
            static_cast<GObjectHandle<GDBusConnection>*>(out)->reset(
                g_dbus_connection_new_finish(result, nullptr));
        };
        g_dbus_connection_new(streamOf(ends[0]).get(), guid.get(),
                              G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER, nullptr, nullptr, made,
                              &program_);
        panel_.reset(g_dbus_connection_new_sync(streamOf(ends[1]).get(), nullptr,
                                                G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT,
                                                nullptr, nullptr, nullptr));
        while (program_ == nullptr) {
            g_main_context_iteration(nullptr, TRUE);
        }
        fuzz::require(panel_ != nullptr);
    }

    GDBusConnection* program() const { return program_.get(); }

    /// Calls and waits for the answer: a value, or an error if the arguments are wrong.
    void call(const Method& method, GVariant* arguments) const {
        GObjectHandle<GAsyncResult> result;
        g_dbus_connection_call(
            panel_.get(), nullptr, DBusMenu::path, "com.canonical.dbusmenu", method.name, arguments,
            nullptr, G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr,
            [](GObject*, GAsyncResult* answer, gpointer out) {
                *static_cast<GObjectHandle<GAsyncResult>*>(out) = shareGObject(answer);
            },
            &result);
        while (result == nullptr) {
            g_main_context_iteration(nullptr, TRUE);
        }
        GErrorOut error;
        const GVariantHandle value(
            g_dbus_connection_call_finish(panel_.get(), result.get(), error.out()));
        fuzz::require(value != nullptr || isAnAnswer(error.get()));
    }

private:
    static bool isAnAnswer(const GError* error) {
        return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS) != FALSE ||
               g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD) != FALSE;
    }

    GObjectHandle<GDBusConnection> program_;
    GObjectHandle<GDBusConnection> panel_;
};

/// Entries 1 to 6; 4 and 5 are in the submenu of 3. Choosing the last one replaces the menu.
Menu example(DBusMenu& menu, int& runs) {
    const auto item = [&runs](std::string title) {
        MenuItem entry;
        entry.title = std::move(title);
        entry.action = [&runs](const MenuItem&) { ++runs; };
        return entry;
    };
    Menu result;
    result.addItem(item("_Version"));
    result.addItem(MenuItem::separatorItem());
    result.addItem(item("\xFF folder"));
    result.items.back().submenu = {item("Remove"), item("Show")};
    result.addItem(item("Replace"));
    result.items.back().keyEquivalent = "q";
    result.items.back().action = [&menu, &runs](const MenuItem&) {
        ++runs;
        menu.setMenu(example(menu, runs));
    };
    return result;
}

}  // namespace

/// Rule: of calls of all kinds, one after the other, each is answered, and at most as many actions
/// run as there were clicks.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Pair pair;
    fuzz::endOnWarnings();
    int runs = 0;
    DBusMenu menu;
    menu.offer(pair.program());
    menu.setMenu(example(menu, runs));
    fuzz::Pieces pieces({data, size});
    while (!pieces.atEnd()) {
        const Method& method = methods.at(pieces.number() % methods.size());
        pair.call(method, pieces.tuple(method.type).get());
    }
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    fuzz::require(static_cast<std::size_t>(runs) <= size);
    return 0;
}
