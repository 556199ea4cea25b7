#include "linux/watching/WatchTree.h"

#include <algorithm>
#include <utility>

#include "base/system/FilePath.h"

namespace glintmark::platform {

WatchTree::WatchTree(std::vector<std::string> folders)
    : folders_(std::move(folders)),
      folderWatches_(folders_.size(), noWatch),
      noName_(names_.add("")) {}

void WatchTree::setFolderWatch(std::size_t folder, Watch watch) {
    const auto before = std::exchange(folderWatches_[folder], watch);
    if (auto* node = find(before)) {
        node->isFolder = std::count(folderWatches_.begin(), folderWatches_.end(), before) > 0;
    }
    if (auto* node = find(watch)) {
        node->isFolder = 1;
    }
}

bool WatchTree::add(Watch watch) {
    auto& page = pages_[static_cast<std::size_t>(watch) / pageNodes];
    if (page == nullptr) {
        page = std::make_unique<Page>();
    }
    auto& node = page->nodes[static_cast<std::size_t>(watch) % pageNodes];
    if (node.name != 0) {
        return false;
    }
    node = {};
    node.name = noName_ & NameArena::maximumOffset;
    ++page->used;
    ++size_;
    return true;
}

void WatchTree::remove(Watch watch) {
    auto* node = find(watch);
    if (node == nullptr) {
        return;
    }
    unlinkAll(watch);
    std::replace(folderWatches_.begin(), folderWatches_.end(), watch, noWatch);
    *node = {};
    --size_;
    const auto page = pages_.find(static_cast<std::size_t>(watch) / pageNodes);
    if (--page->second->used == 0) {
        pages_.erase(page);
    }
}

WatchTree::Linked WatchTree::link(Watch watch, Watch parent, std::string_view name) {
    if (isLinked(watch, parent, name)) {
        return Linked::present;
    }
    if (isBelow(parent, watch)) {
        return Linked::refused;
    }
    compactNames();
    const auto offset = names_.add(name);
    if (offset == 0) {
        return Linked::refused;
    }
    auto* node = find(watch);
    if (node->parent == noWatch) {
        node->parent = static_cast<std::uint32_t>(parent) & 0x7FFFFFFFU;
        node->name = offset & NameArena::maximumOffset;
    } else {
        aliases_.emplace(watch, Alias{parent, offset});
    }
    return Linked::added;
}

void WatchTree::unlink(Watch watch, Watch parent, std::string_view name) {
    const auto kept = links(watch);
    unlinkAll(watch);
    for (const auto& link : kept) {
        if (link.parent != parent || link.name != name) {
            this->link(watch, link.parent, link.name);
        }
    }
}

void WatchTree::unlinkAll(Watch watch) {
    for (const auto& stored : storedLinks(watch)) {
        names_.drop(stored.name);
    }
    aliases_.erase(watch);
    auto* node = find(watch);
    node->parent = noWatch;
    node->name = noName_ & NameArena::maximumOffset;
}

bool WatchTree::isLinked(Watch watch, Watch parent, std::string_view name) const {
    const auto stored = storedLinks(watch);
    return std::any_of(stored.begin(), stored.end(), [&](const Alias& link) {
        return link.parent == parent && names_.at(link.name) == name;
    });
}

std::vector<WatchTree::Link> WatchTree::links(Watch watch) const {
    std::vector<Link> links;
    for (const auto& stored : storedLinks(watch)) {
        links.push_back({stored.parent, std::string(names_.at(stored.name))});
    }
    return links;
}

std::string WatchTree::anyPath(Watch watch) const {
    std::vector<std::string> paths;
    collectPaths(watch, {}, 1, paths);
    return paths.empty() ? "" : std::move(paths.front());
}

std::vector<std::string> WatchTree::paths(Watch watch) const {
    std::vector<std::string> paths;
    collectPaths(watch, {}, std::string::npos, paths);
    return paths;
}

void WatchTree::setAllUnseen() {
    forEach([](Watch, Node& node) { node.seen = 0; });
}

void WatchTree::markReachable() {
    setAllUnseen();
    forEach([this](Watch watch, Node& node) { node.seen = isReachable(watch) ? 1 : 0; });
}

std::vector<WatchTree::Watch> WatchTree::unseen() const {
    std::vector<Watch> watches;
    forEach([&](Watch watch, const Node& node) {
        if (node.seen == 0) {
            watches.push_back(watch);
        }
    });
    return watches;
}

WatchTree::Node* WatchTree::find(Watch watch) const {
    const auto page = pages_.find(static_cast<std::size_t>(watch) / pageNodes);
    if (page == pages_.end()) {
        return nullptr;
    }
    auto& node = page->second->nodes[static_cast<std::size_t>(watch) % pageNodes];
    return node.name != 0 ? &node : nullptr;
}

void WatchTree::forEach(const std::function<void(Watch, Node&)>& visit) const {
    for (const auto& [number, page] : pages_) {
        for (std::size_t i = 0; i < pageNodes; ++i) {
            if (page->nodes[i].name != 0) {
                visit(static_cast<Watch>(number * pageNodes + i), page->nodes[i]);
            }
        }
    }
}

std::vector<WatchTree::Alias> WatchTree::storedLinks(Watch watch) const {
    std::vector<Alias> links;
    const auto* node = find(watch);
    if (node->parent != noWatch) {
        links.push_back({static_cast<Watch>(node->parent), node->name});
    }
    const auto [begin, end] = aliases_.equal_range(watch);
    std::for_each(begin, end, [&](const auto& alias) { links.push_back(alias.second); });
    return links;
}

bool WatchTree::isBelow(Watch watch, Watch ancestor) const {
    for (const auto* node = find(watch); node != nullptr && watch != ancestor; node = find(watch)) {
        const auto [begin, end] = aliases_.equal_range(watch);
        if (std::any_of(begin, end, [&](const auto& alias) {
                return isBelow(alias.second.parent, ancestor);
            })) {
            return true;
        }
        watch = static_cast<Watch>(node->parent);
    }
    return watch == ancestor;
}

/// Trusts the mark of the nearest marked directory above, so that marking a whole tree costs little
/// for each directory.
bool WatchTree::isReachable(Watch watch) const {
    auto above = watch;
    for (const auto* node = find(above); node != nullptr; node = find(above)) {
        if (node->isFolder != 0 || node->seen != 0) {
            return true;
        }
        above = static_cast<Watch>(node->parent);
    }
    return !aliases_.empty() && !anyPath(watch).empty();
}

void WatchTree::collectPaths(Watch watch, Names names, std::size_t maximum,
                             std::vector<std::string>& paths) const {
    for (const auto* node = find(watch); node != nullptr && paths.size() < maximum;
         node = find(watch)) {
        if (node->isFolder != 0) {
            addFolderPaths(watch, names, maximum, paths);
        }
        const auto [begin, end] = aliases_.equal_range(watch);
        std::for_each(begin, end, [&](const auto& alias) {
            auto longer = names;
            longer.push_back(names_.at(alias.second.name));
            collectPaths(alias.second.parent, std::move(longer), maximum, paths);
        });
        names.push_back(names_.at(node->name));
        watch = static_cast<Watch>(node->parent);
    }
}

void WatchTree::addFolderPaths(Watch watch, const Names& names, std::size_t maximum,
                               std::vector<std::string>& paths) const {
    for (std::size_t i = 0; i < folders_.size() && paths.size() < maximum; ++i) {
        if (folderWatches_[i] != watch) {
            continue;
        }
        auto path = folders_[i];
        if (!names.empty()) {
            path = appendPathComponent(path, names.back());
            std::for_each(names.rbegin() + 1, names.rend(),
                          [&](auto name) { path.append("/").append(name); });
        }
        if (std::find(paths.begin(), paths.end(), path) == paths.end()) {
            paths.push_back(std::move(path));
        }
    }
}

void WatchTree::compactNames() {
    if (!names_.isWasteful()) {
        return;
    }
    NameArena fresh;
    forEach([&](Watch, Node& node) {
        node.name = fresh.add(names_.at(node.name)) & NameArena::maximumOffset;
    });
    for (auto& [watch, alias] : aliases_) {
        alias.name = fresh.add(names_.at(alias.name));
    }
    noName_ = fresh.add("");
    names_ = std::move(fresh);
}

}  // namespace glintmark::platform
