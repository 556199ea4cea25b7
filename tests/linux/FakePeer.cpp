#include "tests/linux/FakePeer.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/linux/MainLoop.h"

namespace glintmark::platform {

namespace {

constexpr auto busName = "org.freedesktop.DBus";
constexpr auto busPath = "/org/freedesktop/DBus";

}  // namespace

std::string variantText(GVariant* value) {
    const GStringHandle printed(g_variant_print(value, FALSE));
    return printed.get();
}

std::string PeerReply::part(gsize index) const {
    return variantText(GVariantHandle(g_variant_get_child_value(value.get(), index)).get());
}

FakePeer::FakePeer(const PrivateBus& bus) : connection_(bus.connect()) {}

FakePeer::~FakePeer() {
    if (subscription_ != 0) {
        g_dbus_connection_signal_unsubscribe(connection_.get(), subscription_);
    }
}

std::string FakePeer::uniqueName() const {
    return g_dbus_connection_get_unique_name(connection_.get());
}

void FakePeer::ownName(const std::string& name) {
    constexpr auto primaryOwner = "1";
    const PeerReply reply{callBus("RequestName", g_variant_new("(su)", name.c_str(), 0U)), {}};
    ASSERT_NE(reply.value, nullptr);
    EXPECT_EQ(reply.part(0), primaryOwner);
}

std::string FakePeer::ownerOf(const std::string& name) const {
    const auto reply = callBus("GetNameOwner", g_variant_new("(s)", name.c_str()));
    const char* owner = "";
    if (reply != nullptr) {
        g_variant_get(reply.get(), "(&s)", &owner);
    }
    return owner;
}

GVariantHandle FakePeer::callBus(const char* method, GVariant* arguments) const {
    return GVariantHandle(
        g_dbus_connection_call_sync(connection_.get(), busName, busPath, busName, method, arguments,
                                    nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
}

void FakePeer::offer(const char* path, const char* xml, DBusObject::Call call,
                     DBusObject::Property property) {
    objects_.push_back(std::make_unique<DBusObject>(connection_.get(), path, xml, std::move(call),
                                                    std::move(property)));
}

void FakePeer::listen(const char* interface) {
    const auto received = [](GDBusConnection*, const gchar*, const gchar*, const gchar*,
                             const gchar* name, GVariant* arguments, gpointer self) {
        static_cast<FakePeer*>(self)->signals_.push_back({name, variantText(arguments)});
    };
    subscription_ = g_dbus_connection_signal_subscribe(
        connection_.get(), nullptr, interface, nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        received, this, nullptr);
    callBus("GetId", nullptr);  // when it returns, the bus has the subscription
}

PeerReply FakePeer::call(const std::string& name, const std::string& path,
                         const std::string& interface, const std::string& method,
                         const std::string& arguments) const {
    GErrorOut parseError;
    GVariant* const value =
        g_variant_parse(nullptr, arguments.c_str(), nullptr, nullptr, parseError.out());
    const GVariantHandle parsed(value != nullptr ? g_variant_take_ref(value) : nullptr);
    EXPECT_NE(parsed, nullptr) << arguments << ": " << parseError.get()->message;

    GObjectHandle<GAsyncResult> result;
    g_dbus_connection_call(
        connection_.get(), name.c_str(), path.c_str(), interface.c_str(), method.c_str(),
        parsed.get(), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        [](GObject*, GAsyncResult* answer, gpointer out) {
            *static_cast<GObjectHandle<GAsyncResult>*>(out) = shareGObject(answer);
        },
        &result);
    EXPECT_TRUE(waitUntil([&] { return result != nullptr; }));

    PeerReply reply;
    GErrorOut error;
    reply.value.reset(g_dbus_connection_call_finish(connection_.get(), result.get(), error.out()));
    if (error) {
        const GStringHandle remote(g_dbus_error_get_remote_error(error.get()));
        reply.errorName = remote != nullptr ? remote.get() : error.get()->message;
    }
    return reply;
}

std::string FakePeer::property(const std::string& name, const std::string& path,
                               const std::string& interface, const std::string& property) const {
    const auto reply = call(name, path, "org.freedesktop.DBus.Properties", "Get",
                            "('" + interface + "', '" + property + "')");
    if (reply.value == nullptr) {
        return {};
    }
    GVariant* value = nullptr;
    g_variant_get(reply.value.get(), "(v)", &value);
    return variantText(GVariantHandle(value).get());
}

bool FakePeer::isHandledBy(GDBusConnection* connection) const {
    bool isBack = false;
    g_dbus_connection_call(
        connection, uniqueName().c_str(), "/", "org.freedesktop.DBus.Peer", "Ping", nullptr,
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer flag) {
            const GVariantHandle reply(
                g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, nullptr));
            *static_cast<bool*>(flag) = true;
        },
        &isBack);
    const bool hasArrived = waitUntil([&] { return isBack; });
    runPending();
    return hasArrived;
}

void FakePeer::die() {
    objects_.clear();
    callBus("GetId", nullptr);  // when it returns, the bus has all earlier messages
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

}  // namespace glintmark::platform
