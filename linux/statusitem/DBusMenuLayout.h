#pragma once

#include <glib.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/Menu.h"

namespace glintmark::platform {

/// One version of a menu as com.canonical.dbusmenu describes it: a tree of numbered entries whose
/// root, number 0, is no entry itself.
///
/// Numbers are never used twice, so that a number from an earlier layout names nothing here.
class DBusMenuLayout {
public:
    using Id = std::int32_t;
    using Names = std::vector<std::string>;  ///< Which properties; all of them when empty.

    static constexpr Id root = 0;

    DBusMenuLayout() = default;
    /// Numbers the entries from `first` on, which is above 0.
    DBusMenuLayout(Menu menu, Id first);
    DBusMenuLayout(const DBusMenuLayout&) = delete;
    DBusMenuLayout& operator=(const DBusMenuLayout&) = delete;
    DBusMenuLayout(DBusMenuLayout&&) = default;
    DBusMenuLayout& operator=(DBusMenuLayout&&) = default;

    Id next() const { return next_; }  ///< The first number that is still free.
    bool contains(Id id) const { return id == root || items_.contains(id); }
    std::vector<Id> ids() const;

    /// The entry; null for the root and for numbers that this layout does not have.
    const MenuItem* item(Id id) const;

    /// The entry with its children as "(ia{sv}av)", `depth` levels of them; all when negative.
    /// `id` must be contained, here and below. Results are floating.
    GVariant* tree(Id id, int depth, const Names& names) const;

    /// The properties that differ from their defaults, as "a{sv}".
    GVariant* properties(Id id, const Names& names) const;

    /// One property, its default included; null for a name that is no property.
    GVariant* property(Id id, const std::string& name) const;

private:
    struct Entry {
        const MenuItem* item;
        std::vector<Id> children;
    };

    std::vector<Id> number(const std::vector<MenuItem>& items);
    const std::vector<Id>& children(Id id) const;

    std::vector<MenuItem> menu_;  ///< What the entries point into; never changed.
    std::map<Id, Entry> items_;
    std::vector<Id> rootChildren_;
    Id next_ = 1;
};

}  // namespace glintmark::platform
