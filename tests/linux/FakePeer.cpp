#include "tests/linux/FakePeer.h"

#include <gtest/gtest.h>

#include <utility>

#include "tests/linux/MainLoop.h"

namespace glintmark::platform {

namespace {

std::string text(GVariant* value) {
    const GStringHandle printed(g_variant_print(value, FALSE));
    return printed.get();
}

}  // namespace

std::string PeerReply::part(gsize index) const {
    return text(GVariantHandle(g_variant_get_child_value(value.get(), index)).get());
}

FakePeer::FakePeer(const PrivateBus& bus) : connection_(bus.connect()) {}

std::string FakePeer::uniqueName() const {
    return g_dbus_connection_get_unique_name(connection_.get());
}

void FakePeer::ownName(const std::string& name) {
    const auto reply = call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                            "RequestName", "('" + name + "', uint32 0)");
    EXPECT_EQ(reply.part(0), "1");
}

void FakePeer::giveUpName(const std::string& name) {
    const auto reply = call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                            "ReleaseName", "('" + name + "',)");
    EXPECT_EQ(reply.part(0), "1");
}

void FakePeer::offer(const char* path, const char* xml, DBusObject::Call call,
                     DBusObject::Property property) {
    objects_.push_back(std::make_unique<DBusObject>(connection_.get(), path, xml, std::move(call),
                                                    std::move(property)));
}

PeerReply FakePeer::call(const std::string& name, const std::string& path,
                         const std::string& interface, const std::string& method,
                         const std::string& arguments) const {
    GErrorOut parseError;
    GVariant* parsed =
        g_variant_parse(nullptr, arguments.c_str(), nullptr, nullptr, parseError.out());
    EXPECT_NE(parsed, nullptr) << arguments << ": " << parseError.get()->message;

    GObjectHandle<GAsyncResult> result;
    g_dbus_connection_call(
        connection_.get(), name.c_str(), path.c_str(), interface.c_str(), method.c_str(), parsed,
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
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
    return text(GVariantHandle(value).get());
}

void FakePeer::die() {
    objects_.clear();
    // A round trip, so that the bus has taken in all that was said before.
    const GVariantHandle id(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "GetId", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

}  // namespace glintmark::platform
