#include "linux/statusitem/DBusMenu.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>
#include <utility>

#include "linux/statusitem/DBusMenuXml.h"

namespace glintmark::platform {

namespace {

constexpr std::uint32_t protocolVersion = 3;
constexpr auto unknownEntry = "The menu has no such entry";

/// A layout that would begin at this number or above begins at 1 instead. The numbers above are
/// enough for one layout.
constexpr DBusMenuLayout::Id maximumFirstId = std::numeric_limits<DBusMenuLayout::Id>::max() / 2;

DBusMenuLayout::Names namesFrom(GVariant* strings) {
    DBusMenuLayout::Names names;
    GVariantIter iterator;
    g_variant_iter_init(&iterator, strings);
    const char* name = nullptr;
    while (g_variant_iter_next(&iterator, "&s", &name) != FALSE) {
        names.emplace_back(name);
    }
    return names;
}

std::vector<DBusMenuLayout::Id> idsFrom(GVariant* integers) {
    std::vector<DBusMenuLayout::Id> ids;
    GVariantIter iterator;
    g_variant_iter_init(&iterator, integers);
    DBusMenuLayout::Id id = 0;
    while (g_variant_iter_next(&iterator, "i", &id) != FALSE) {
        ids.push_back(id);
    }
    return ids;
}

bool isClick(std::string_view event) { return event == "clicked"; }
bool isOpening(std::string_view event) { return event == "opened"; }

GVariant* idArray(const std::vector<DBusMenuLayout::Id>& ids) {
    return g_variant_new_fixed_array(G_VARIANT_TYPE_INT32, ids.data(), ids.size(), sizeof(ids[0]));
}

}  // namespace

DBusMenu::DBusMenu(FolderChecks::Look look) : checks_([this] { markFolders(); }, std::move(look)) {}

void DBusMenu::offer(GDBusConnection* connection) {
    object_.reset();
    if (connection != nullptr) {
        object_.emplace(
            connection, path, dbusMenuXml,
            [this](const std::string& method, GVariant* arguments,
                   GDBusMethodInvocation* invocation) { call(method, arguments, invocation); },
            [this](const std::string& name) { return property(name); });
    }
}

void DBusMenu::setMenu(Menu menu) {
    layout_ =
        DBusMenuLayout(std::move(menu), layout_.nextId() < maximumFirstId ? layout_.nextId() : 1);
    ++revision_;
    for (const auto& [id, folder] : layout_.folders()) {
        layout_.setWarning(id, checks_.isUnreadable(folder));
    }
    checkFolders();
    if (object_) {
        object_->emit("LayoutUpdated", g_variant_new("(ui)", revision_, DBusMenuLayout::root));
    }
}

GVariant* DBusMenu::property(const std::string& name) const {
    if (name == "Version") {
        return g_variant_new_uint32(protocolVersion);
    }
    if (name == "TextDirection") {
        return g_variant_new_string("ltr");
    }
    if (name == "Status") {
        return g_variant_new_string("normal");
    }
    return g_variant_new_strv(nullptr, 0);  // IconThemePath: only icons of the desktop's own theme
}

void DBusMenu::call(const std::string& method, GVariant* arguments,
                    GDBusMethodInvocation* invocation) {
    if (method == "GetLayout") {
        getLayout(arguments, invocation);
    } else if (method == "GetGroupProperties") {
        getGroupProperties(arguments, invocation);
    } else if (method == "GetProperty") {
        getProperty(arguments, invocation);
    } else if (method == "Event") {
        event(arguments, invocation);
    } else if (method == "EventGroup") {
        eventGroup(arguments, invocation);
    } else if (method == "AboutToShow") {
        aboutToShow(arguments, invocation);
    } else {
        aboutToShowGroup(arguments, invocation);
    }
}

void DBusMenu::getLayout(GVariant* arguments, GDBusMethodInvocation* invocation) const {
    Id parent = 0;
    int depth = 0;
    GVariant* names = nullptr;
    g_variant_get(arguments, "(ii@as)", &parent, &depth, &names);
    const GVariantHandle owner(names);
    if (!layout_.contains(parent)) {
        refuse(invocation, unknownEntry);
        return;
    }
    g_dbus_method_invocation_return_value(
        invocation,
        g_variant_new("(u@(ia{sv}av))", revision_, layout_.tree(parent, depth, namesFrom(names))));
}

void DBusMenu::getGroupProperties(GVariant* arguments, GDBusMethodInvocation* invocation) const {
    GVariant* requested = nullptr;
    GVariant* names = nullptr;
    g_variant_get(arguments, "(@ai@as)", &requested, &names);
    const GVariantHandle requestedOwner(requested);
    const GVariantHandle namesOwner(names);

    auto ids = idsFrom(requested);
    if (ids.empty()) {
        ids = layout_.ids();
    }
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a(ia{sv})"));
    for (const Id id : ids) {
        if (layout_.contains(id)) {
            g_variant_builder_add(&builder, "(i@a{sv})", id,
                                  layout_.properties(id, namesFrom(names)));
        }
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(a(ia{sv}))", &builder));
}

void DBusMenu::getProperty(GVariant* arguments, GDBusMethodInvocation* invocation) const {
    Id id = 0;
    const char* name = nullptr;
    g_variant_get(arguments, "(i&s)", &id, &name);
    GVariant* value = layout_.contains(id) ? layout_.property(id, name) : nullptr;
    if (value == nullptr) {
        refuse(invocation, "The menu has no such entry or property");
        return;
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(v)", value));
}

void DBusMenu::event(GVariant* arguments, GDBusMethodInvocation* invocation) {
    Id id = 0;
    const char* event = nullptr;
    g_variant_get(arguments, "(i&s@vu)", &id, &event, nullptr, nullptr);
    if (!layout_.contains(id)) {
        refuse(invocation, unknownEntry);
        return;
    }
    g_dbus_method_invocation_return_value(invocation, nullptr);
    if (isClick(event)) {
        click(id);
    } else if (isOpening(event)) {
        willShow(id);
    }
}

void DBusMenu::eventGroup(GVariant* arguments, GDBusMethodInvocation* invocation) {
    std::vector<Id> unknown;
    std::vector<Id> clicked;
    bool hasKnown = false;
    GVariantIter* events = nullptr;
    g_variant_get(arguments, "(a(isvu))", &events);
    Id id = 0;
    const char* event = nullptr;
    while (g_variant_iter_next(events, "(i&s@vu)", &id, &event, nullptr, nullptr) != FALSE) {
        if (!layout_.contains(id)) {
            unknown.push_back(id);
            continue;
        }
        hasKnown = true;
        // A user cannot click an entry twice before the panel sends what happened.
        if (isClick(event) && std::find(clicked.begin(), clicked.end(), id) == clicked.end()) {
            clicked.push_back(id);
        } else if (isOpening(event)) {
            willShow(id);
        }
    }
    g_variant_iter_free(events);

    if (!hasKnown && !unknown.empty()) {
        refuse(invocation, unknownEntry);
        return;
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(@ai)", idArray(unknown)));
    for (const Id entry : clicked) {
        click(entry);
    }
}

void DBusMenu::aboutToShow(GVariant* arguments, GDBusMethodInvocation* invocation) {
    Id id = 0;
    g_variant_get(arguments, "(i)", &id);
    if (!layout_.contains(id)) {
        refuse(invocation, unknownEntry);
        return;
    }
    g_dbus_method_invocation_return_value(invocation, g_variant_new("(b)", FALSE));
    willShow(id);
}

void DBusMenu::aboutToShowGroup(GVariant* arguments, GDBusMethodInvocation* invocation) {
    const GVariantHandle requested(g_variant_get_child_value(arguments, 0));
    const auto ids = idsFrom(requested.get());
    std::vector<Id> unknown;
    for (const Id id : ids) {
        if (!layout_.contains(id)) {
            unknown.push_back(id);
        } else {
            willShow(id);
        }
    }
    if (!ids.empty() && unknown.size() == ids.size()) {
        refuse(invocation, unknownEntry);
        return;
    }
    g_dbus_method_invocation_return_value(invocation,
                                          g_variant_new("(@ai@ai)", idArray({}), idArray(unknown)));
}

void DBusMenu::willShow(Id id) {
    if (id == DBusMenuLayout::root) {
        ++timesShown_;
        checkFolders();
    }
}

/// The panel does not wait for the answers: a change reaches the open menu by a signal.
void DBusMenu::checkFolders() {
    std::vector<std::string> folders;
    for (const auto& [id, folder] : layout_.folders()) {
        folders.push_back(folder);
    }
    checks_.check(folders);
}

void DBusMenu::markFolders() {
    const DBusMenuLayout::Names names{"icon-name"};
    GVariantBuilder updated;
    GVariantBuilder removed;
    g_variant_builder_init(&updated, G_VARIANT_TYPE("a(ia{sv})"));
    g_variant_builder_init(&removed, G_VARIANT_TYPE("a(ias)"));
    for (const auto& [id, folder] : layout_.folders()) {
        const bool isUnreadable = checks_.isUnreadable(folder);
        if (!layout_.setWarning(id, isUnreadable)) {
            continue;
        }
        if (isUnreadable) {
            g_variant_builder_add(&updated, "(i@a{sv})", id, layout_.properties(id, names));
        } else {
            const std::array<const char*, 1> name{names.front().c_str()};
            g_variant_builder_add(&removed, "(i@as)", id, g_variant_new_strv(name.data(), 1));
        }
    }
    const GVariantHandle change(
        g_variant_ref_sink(g_variant_new("(a(ia{sv})a(ias))", &updated, &removed)));
    if (object_) {
        object_->emit("ItemsPropertiesUpdated", change.get());
    }
}

/// The action runs later, from the main loop. It may open a dialog with a nested loop, and the
/// panel must have its answer before that.
void DBusMenu::click(Id id) {
    clicked_.push_back(id);
    const auto run = [](gpointer data) -> gboolean {
        auto* self = static_cast<DBusMenu*>(data);
        self->actionSource_.forget();
        self->runActions();
        return G_SOURCE_REMOVE;
    };
    actionSource_ = GSourceId(g_idle_add_full(G_PRIORITY_DEFAULT, run, this, nullptr));
}

void DBusMenu::runActions() {
    for (const Id id : std::exchange(clicked_, {})) {
        const MenuItem* item = layout_.item(id);  // null if an earlier action replaced the menu
        if (item != nullptr && item->isSelectable() && item->action) {
            const MenuItem copy = *item;  // the action may replace the menu
            copy.action(copy);
        }
    }
}

}  // namespace glintmark::platform
