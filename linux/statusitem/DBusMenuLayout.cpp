#include "linux/statusitem/DBusMenuLayout.h"

#include <algorithm>
#include <array>
#include <utility>

#include "linux/bus/DBusText.h"

// The names, types and defaults of the properties are those of libdbusmenu's dbus-menu.xml.

namespace glintmark::platform {

namespace {

constexpr auto shortcutModifier = "Control";

using Entry = DBusMenuLayout::Entry;

struct Property {
    const char* name;
    GVariant* (*value)(const Entry& entry);  ///< Null if it is the default.
    GVariant* (*defaultValue)();
};

/// In a label, "_" marks the access key and "__" means one "_".
std::string escapedLabel(const std::string& title) {
    std::string label;
    for (const char character : dbusText(title)) {
        label.append(character == '_' ? 2 : 1, character);
    }
    return label;
}

GVariant* shortcut(const std::string& key) {
    const std::array<const char*, 2> keys{shortcutModifier, key.c_str()};
    const std::array<GVariant*, 1> shortcuts{g_variant_new_strv(keys.data(), keys.size())};
    return g_variant_new_array(G_VARIANT_TYPE("as"), shortcuts.data(), shortcuts.size());
}

constexpr auto warningIcon = "dialog-warning";  // in every theme: freedesktop.org, Icon Naming

const std::array<Property, 7> knownProperties{{
    {"type",
     [](const Entry& entry) {
         return entry.item != nullptr && entry.item->isSeparator ? g_variant_new_string("separator")
                                                                 : nullptr;
     },
     [] { return g_variant_new_string("standard"); }},
    {"label",
     [](const Entry& entry) {
         return entry.item == nullptr || entry.item->title.empty()
                    ? nullptr
                    : g_variant_new_string(escapedLabel(entry.item->title).c_str());
     },
     [] { return g_variant_new_string(""); }},
    {"enabled",
     [](const Entry& entry) {
         const bool greyed =
             entry.item != nullptr && !entry.item->isSeparator && !entry.item->isSelectable();
         return greyed ? g_variant_new_boolean(FALSE) : nullptr;
     },
     [] { return g_variant_new_boolean(TRUE); }},
    {"visible", [](const Entry&) -> GVariant* { return nullptr; },
     [] { return g_variant_new_boolean(TRUE); }},
    {"icon-name",
     [](const Entry& entry) {
         return entry.hasWarning ? g_variant_new_string(warningIcon) : nullptr;
     },
     [] { return g_variant_new_string(""); }},
    {"shortcut",
     [](const Entry& entry) {
         return entry.item == nullptr || entry.item->keyEquivalent.empty()
                    ? nullptr
                    : shortcut(entry.item->keyEquivalent);
     },
     [] { return g_variant_new_array(G_VARIANT_TYPE("as"), nullptr, 0); }},
    {"children-display",
     [](const Entry& entry) {
         return entry.children.empty() ? nullptr : g_variant_new_string("submenu");
     },
     [] { return g_variant_new_string(""); }},
}};

bool isWanted(const DBusMenuLayout::Names& names, const char* name) {
    return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

DBusMenuLayout::DBusMenuLayout(Menu menu, Id firstId)
    : menu_(std::move(menu.items)), nextId_(firstId) {
    root_.children = assignIds(menu_);
}

std::vector<DBusMenuLayout::Id> DBusMenuLayout::assignIds(const std::vector<MenuItem>& items) {
    std::vector<Id> ids;
    for (const MenuItem& item : items) {
        const Id id = nextId_++;
        ids.push_back(id);
        items_[id].item = &item;
        items_[id].children = assignIds(item.submenu);
    }
    return ids;
}

std::vector<DBusMenuLayout::Id> DBusMenuLayout::ids() const {
    std::vector<Id> ids{root};
    for (const auto& [id, entry] : items_) {
        ids.push_back(id);
    }
    return ids;
}

const DBusMenuLayout::Entry* DBusMenuLayout::entry(Id id) const {
    const auto found = items_.find(id);
    return id == root ? &root_ : found == items_.end() ? nullptr : &found->second;
}

const MenuItem* DBusMenuLayout::item(Id id) const {
    const Entry* found = entry(id);
    return found != nullptr ? found->item : nullptr;
}

std::map<DBusMenuLayout::Id, std::string> DBusMenuLayout::folders() const {
    std::map<Id, std::string> found;
    for (const auto& [id, entry] : items_) {
        if (!entry.item->folder.empty()) {
            found[id] = entry.item->folder;
        }
    }
    return found;
}

bool DBusMenuLayout::setWarning(Id id, bool hasWarning) {
    return std::exchange(items_.at(id).hasWarning, hasWarning) != hasWarning;
}

GVariant* DBusMenuLayout::tree(Id id, int depth, const Names& names) const {
    GVariantBuilder subtrees;
    g_variant_builder_init(&subtrees, G_VARIANT_TYPE("av"));
    if (depth != 0) {
        for (const Id child : entry(id)->children) {
            g_variant_builder_add(&subtrees, "v", tree(child, std::max(depth, 0) - 1, names));
        }
    }
    return g_variant_new("(i@a{sv}av)", id, properties(id, names), &subtrees);
}

GVariant* DBusMenuLayout::properties(Id id, const Names& names) const {
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE("a{sv}"));
    for (const Property& property : knownProperties) {
        if (!isWanted(names, property.name)) {
            continue;
        }
        if (GVariant* value = property.value(*entry(id))) {
            g_variant_builder_add(&builder, "{sv}", property.name, value);
        }
    }
    return g_variant_builder_end(&builder);
}

GVariant* DBusMenuLayout::property(Id id, const std::string& name) const {
    for (const Property& property : knownProperties) {
        if (name == property.name) {
            GVariant* value = property.value(*entry(id));
            return value != nullptr ? value : property.defaultValue();
        }
    }
    return nullptr;
}

}  // namespace glintmark::platform
