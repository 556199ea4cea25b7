#include "linux/statusitem/DBusMenuLayout.h"

#include <algorithm>
#include <array>
#include <utility>

#include "linux/bus/DBusText.h"

// The names, types and defaults of the properties are those of libdbusmenu's dbus-menu.xml.

namespace glintmark::platform {

namespace {

constexpr auto shortcutModifier = "Control";

struct Property {
    const char* name;
    GVariant* (*value)(const MenuItem* item, bool hasChildren);  ///< Null if it is the default.
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

const std::array<Property, 6> knownProperties{{
    {"type",
     [](const MenuItem* item, bool) {
         return item != nullptr && item->isSeparator ? g_variant_new_string("separator") : nullptr;
     },
     [] { return g_variant_new_string("standard"); }},
    {"label",
     [](const MenuItem* item, bool) {
         return item == nullptr || item->title.empty()
                    ? nullptr
                    : g_variant_new_string(escapedLabel(item->title).c_str());
     },
     [] { return g_variant_new_string(""); }},
    {"enabled",
     [](const MenuItem* item, bool) {
         const bool greyed = item != nullptr && !item->isSeparator && !item->isSelectable();
         return greyed ? g_variant_new_boolean(FALSE) : nullptr;
     },
     [] { return g_variant_new_boolean(TRUE); }},
    {"visible", [](const MenuItem*, bool) -> GVariant* { return nullptr; },
     [] { return g_variant_new_boolean(TRUE); }},
    {"shortcut",
     [](const MenuItem* item, bool) {
         return item == nullptr || item->keyEquivalent.empty() ? nullptr
                                                               : shortcut(item->keyEquivalent);
     },
     [] { return g_variant_new_array(G_VARIANT_TYPE("as"), nullptr, 0); }},
    {"children-display",
     [](const MenuItem*, bool hasChildren) {
         return hasChildren ? g_variant_new_string("submenu") : nullptr;
     },
     [] { return g_variant_new_string(""); }},
}};

bool isWanted(const DBusMenuLayout::Names& names, const char* name) {
    return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
}

}  // namespace

DBusMenuLayout::DBusMenuLayout(Menu menu, Id firstId)
    : menu_(std::move(menu.items)), nextId_(firstId) {
    rootChildren_ = assignIds(menu_);
}

std::vector<DBusMenuLayout::Id> DBusMenuLayout::assignIds(const std::vector<MenuItem>& items) {
    std::vector<Id> ids;
    for (const MenuItem& item : items) {
        const Id id = nextId_++;
        ids.push_back(id);
        items_[id] = Entry{&item, {}};
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

const MenuItem* DBusMenuLayout::item(Id id) const {
    const auto found = items_.find(id);
    return found == items_.end() ? nullptr : found->second.item;
}

const std::vector<DBusMenuLayout::Id>& DBusMenuLayout::children(Id id) const {
    return id == root ? rootChildren_ : items_.at(id).children;
}

GVariant* DBusMenuLayout::tree(Id id, int depth, const Names& names) const {
    GVariantBuilder subtrees;
    g_variant_builder_init(&subtrees, G_VARIANT_TYPE("av"));
    if (depth != 0) {
        for (const Id child : children(id)) {
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
        if (GVariant* value = property.value(item(id), !children(id).empty())) {
            g_variant_builder_add(&builder, "{sv}", property.name, value);
        }
    }
    return g_variant_builder_end(&builder);
}

GVariant* DBusMenuLayout::property(Id id, const std::string& name) const {
    for (const Property& property : knownProperties) {
        if (name == property.name) {
            GVariant* value = property.value(item(id), !children(id).empty());
            return value != nullptr ? value : property.defaultValue();
        }
    }
    return nullptr;
}

}  // namespace glintmark::platform
