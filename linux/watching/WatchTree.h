#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "linux/watching/NameArena.h"

namespace glintmark::platform {

/// The place of each watched directory: its parent and its name there, up to a watched folder.
///
/// A directory with a name of eight bytes takes about 17 bytes. A directory is identified by its
/// inotify watch, so it has one node for all its paths: it may be a watched folder in several
/// spellings, be below another folder, and have several links (a bind mount, or a move of which not
/// all events have arrived). Links never form a cycle.
class WatchTree {
public:
    using Watch = int;  ///< Positive.
    static constexpr Watch noWatch = 0;

    struct Link {
        Watch parent;
        std::string name;
    };

    enum class Linked { added, present, refused };

    explicit WatchTree(std::vector<std::string> folders);

    const std::vector<std::string>& folders() const { return folders_; }
    Watch folderWatch(std::size_t folder) const { return folderWatches_[folder]; }
    void setFolderWatch(std::size_t folder, Watch watch);

    bool contains(Watch watch) const { return find(watch) != nullptr; }
    bool isFolder(Watch watch) const { return find(watch)->isFolder != 0; }
    std::size_t size() const { return size_; }

    /// False if the directory is in the tree already.
    bool add(Watch watch);

    /// Removes the directory and its links. The directories below it stay, but have no path until
    /// they are linked again.
    void remove(Watch watch);

    /// Notes that `watch` is in `parent` under `name`. Refused if `parent` is `watch` or is below
    /// it, and when there is no room for the name.
    Linked link(Watch watch, Watch parent, std::string_view name);
    void unlink(Watch watch, Watch parent, std::string_view name);
    void unlinkAll(Watch watch);
    bool isLinked(Watch watch, Watch parent, std::string_view name) const;
    std::vector<Link> links(Watch watch) const;
    bool hasSeveralLinks(Watch watch) const { return aliases_.contains(watch); }

    /// One of the directory's paths; "" if none is known.
    std::string anyPath(Watch watch) const;

    /// All paths of the directory, by each spelling of each watched folder above it.
    std::vector<std::string> paths(Watch watch) const;

    /// Two marks on each directory, for the owner's use.
    bool isSeen(Watch watch) const { return find(watch)->seen != 0; }
    void setSeen(Watch watch, bool seen) { find(watch)->seen = seen ? 1 : 0; }
    void setAllUnseen();
    bool isReported(Watch watch) const { return find(watch)->reported != 0; }
    void setReported(Watch watch, bool reported) { find(watch)->reported = reported ? 1 : 0; }

    /// Marks as seen the watched folders and all below them, and nothing else.
    void markReachable();

    std::vector<Watch> unseen() const;

private:
    struct Node {
        std::uint32_t parent : 31;  // a watch; `noWatch` without a link
        std::uint32_t seen : 1;
        std::uint32_t name : 30;  // in `names_`; 0 when this place holds no directory
        std::uint32_t reported : 1;
        std::uint32_t isFolder : 1;
    };

    // The kernel numbers watches upwards, so pages fill up densely.
    static constexpr std::size_t pageNodes = 256;
    struct Page {
        std::array<Node, pageNodes> nodes{};
        std::size_t used = 0;
    };

    // A link beyond a directory's first.
    struct Alias {
        Watch parent;
        NameArena::Offset name;
    };

    using Names = std::vector<std::string_view>;  // of a path, the last one first

    Node* find(Watch watch) const;
    void forEach(const std::function<void(Watch, Node&)>& visit) const;
    std::vector<Alias> storedLinks(Watch watch) const;
    bool isBelow(Watch watch, Watch ancestor) const;
    bool isReachable(Watch watch) const;
    void collectPaths(Watch watch, Names names, std::size_t maximum,
                      std::vector<std::string>& paths) const;
    void addFolderPaths(Watch watch, const Names& names, std::size_t maximum,
                        std::vector<std::string>& paths) const;
    void compactNames();

    std::vector<std::string> folders_;
    std::vector<Watch> folderWatches_;
    std::unordered_map<std::size_t, std::unique_ptr<Page>> pages_;
    std::multimap<Watch, Alias> aliases_;
    NameArena names_;
    NameArena::Offset noName_;
    std::size_t size_ = 0;
};

}  // namespace glintmark::platform
