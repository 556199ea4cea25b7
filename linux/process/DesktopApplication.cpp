#include "linux/process/DesktopApplication.h"

#include <utility>

namespace glintmark::platform {

namespace {

constexpr auto applicationXml = R"xml(<node>
  <interface name="org.freedesktop.Application">
    <method name="Activate">
      <arg type="a{sv}" name="platform_data" direction="in"/>
    </method>
    <method name="Open">
      <arg type="as" name="uris" direction="in"/>
      <arg type="a{sv}" name="platform_data" direction="in"/>
    </method>
    <method name="ActivateAction">
      <arg type="s" name="action_name" direction="in"/>
      <arg type="av" name="parameter" direction="in"/>
      <arg type="a{sv}" name="platform_data" direction="in"/>
    </method>
  </interface>
</node>
)xml";

/// A key of the platform data, which receivers ignore if they do not know it.
constexpr auto secondStartKey = "glintmark-second-start";

DesktopApplication::Start startFrom(GVariant* platformData) {
    gboolean isSecond = FALSE;
    g_variant_lookup(platformData, secondStartKey, "b", &isSecond);
    return isSecond != FALSE ? DesktopApplication::Start::byASecond
                             : DesktopApplication::Start::byDesktop;
}

}  // namespace

DesktopApplication::DesktopApplication(SessionBus& bus) {
    subscription_ = bus.observe([this](GDBusConnection* connection) {
        object_.reset();
        if (connection != nullptr) {
            object_.emplace(
                connection, path, applicationXml,
                [this](const std::string& method, GVariant* arguments,
                       GDBusMethodInvocation* invocation) { call(method, arguments, invocation); },
                nullptr);
        }
    });
}

/// Files that come with `Open` are ignored: the program opens none.
void DesktopApplication::call(const std::string& method, GVariant* arguments,
                              GDBusMethodInvocation* invocation) {
    if (method == "ActivateAction") {
        const char* name = nullptr;
        g_variant_get(arguments, "(&s@av@a{sv})", &name, nullptr, nullptr);
        const auto action = handlers_.actions.find(name);
        if (action == handlers_.actions.end()) {
            refuse(invocation, "The program has no such action");
            return;
        }
        g_dbus_method_invocation_return_value(invocation, nullptr);
        runLater(action->second);
        return;
    }
    const GVariantHandle platformData(
        g_variant_get_child_value(arguments, g_variant_n_children(arguments) - 1));
    g_dbus_method_invocation_return_value(invocation, nullptr);
    if (handlers_.started) {
        runLater([started = handlers_.started, start = startFrom(platformData.get())] {
            started(start);
        });
    }
}

/// An action may open a dialog with a nested loop, and the caller must have its answer before that.
void DesktopApplication::runLater(std::function<void()> work) {
    pending_.push_back(std::move(work));
    const auto run = [](gpointer data) -> gboolean {
        auto* self = static_cast<DesktopApplication*>(data);
        self->source_.forget();
        self->runPending();
        return G_SOURCE_REMOVE;
    };
    source_ = GSourceId(g_idle_add_full(G_PRIORITY_DEFAULT, run, this, nullptr));
}

void DesktopApplication::runPending() {
    for (const auto& work : std::exchange(pending_, {})) {
        work();
    }
}

void DesktopApplication::reportSecondStart(GDBusConnection* connection) {
    const std::unique_ptr<GDBusMessage, ReleaseWith<g_object_unref>> message(
        g_dbus_message_new_method_call(SessionBus::programName, path, interface, "Activate"));
    constexpr auto flags = static_cast<GDBusMessageFlags>(G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED |
                                                          G_DBUS_MESSAGE_FLAGS_NO_AUTO_START);
    g_dbus_message_set_flags(message.get(), flags);
    GVariantBuilder platformData;
    g_variant_builder_init(&platformData, G_VARIANT_TYPE_VARDICT);
    g_variant_builder_add(&platformData, "{sv}", secondStartKey, g_variant_new_boolean(TRUE));
    g_dbus_message_set_body(message.get(), g_variant_new("(a{sv})", &platformData));
    g_dbus_connection_send_message(connection, message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                   nullptr, nullptr);
}

}  // namespace glintmark::platform
