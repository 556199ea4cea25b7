#pragma once

#include <glib.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/Menu.h"

namespace glintmark::platform {

/// One version of a menu in the form of com.canonical.dbusmenu: a tree of numbered entries. The
/// root, number 0, stands for the menu itself.
///
/// If each layout numbers its entries from the last one's `nextId()` on, a number from an earlier
/// layout names nothing in this one.
class DBusMenuLayout {
public:
    using Id = std::int32_t;
    using Names = std::vector<std::string>;  ///< The wanted properties; all if empty.

    static constexpr Id root = 0;

    DBusMenuLayout() = default;
    /// Numbers the entries from `firstId` on, which must be above 0.
    DBusMenuLayout(Menu menu, Id firstId);
    DBusMenuLayout(const DBusMenuLayout&) = delete;
    DBusMenuLayout& operator=(const DBusMenuLayout&) = delete;
    DBusMenuLayout(DBusMenuLayout&&) = default;
    DBusMenuLayout& operator=(DBusMenuLayout&&) = default;

    Id nextId() const { return nextId_; }  ///< The first unused number.
    bool contains(Id id) const { return id == root || items_.contains(id); }
    std::vector<Id> ids() const;

    /// The entry; null for the root and for unknown numbers.
    const MenuItem* item(Id id) const;

    /// The folders that entries stand for, by number.
    std::map<Id, std::string> folders() const;

    /// Puts a warning sign on the entry, or removes it. False if nothing changes.
    bool setWarning(Id id, bool hasWarning);

    /// The entry with `depth` levels of children as "(ia{sv}av)"; all levels if `depth` is
    /// negative. For this operation and those below, `id` must be contained, and the result is
    /// floating.
    GVariant* tree(Id id, int depth, const Names& names) const;

    /// The properties that differ from their defaults, as "a{sv}".
    GVariant* properties(Id id, const Names& names) const;

    /// One property, or its default if unset; null for an unknown name.
    GVariant* property(Id id, const std::string& name) const;

    struct Entry {
        const MenuItem* item;
        std::vector<Id> children;
        bool hasWarning = false;
    };

private:
    std::vector<Id> assignIds(const std::vector<MenuItem>& items);
    const Entry* entry(Id id) const;

    std::vector<MenuItem> menu_;  ///< The entries point into it, so it never changes.
    std::map<Id, Entry> items_;
    Entry root_{nullptr, {}};
    Id nextId_ = 1;
};

}  // namespace glintmark::platform
