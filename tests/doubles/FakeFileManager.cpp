#include "tests/doubles/FakeFileManager.h"

#include <algorithm>
#include <utility>

#include "base/system/FilePath.h"

namespace glintmark::doubles {

namespace {

/// The root becomes the empty path.
std::string withoutTrailingSlashes(const std::string& path) {
    const auto last = path.find_last_not_of('/');
    return path.substr(0, last == std::string::npos ? 0 : last + 1);
}

std::string parentOf(const std::string& path) { return path.substr(0, path.rfind('/')); }
std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

FakeFileManager::FakeFileManager() {
    nodes_[""].isDirectory = true;
    setHome("/home/kim");
}

std::array<std::string, 2> FakeFileManager::desktopAndDownloads() {
    return desktopAndDownloads_.value_or(
        std::array<std::string, 2>{home_ + "/Desktop", home_ + "/Downloads"});
}

bool FakeFileManager::contentsOfDirectory(const std::string& directory,
                                          const std::function<void(std::string_view)>& visit) {
    listings_.push_back(directory);
    if (const auto hook = onListing) {  // a copy: the hook may replace itself
        hook(directory);
    }
    const auto path = withoutTrailingSlashes(directory);
    const auto node = nodes_.find(path);
    if (directory.empty() || node == nodes_.end() || !node->second.isDirectory ||
        !node->second.isReadable) {
        return false;
    }
    if (!vanishing_.empty()) {
        return listWhileSomeVanish(path, visit);
    }
    for (const auto& name : node->second.names) {
        visit(name);
    }
    return true;
}

/// Lists when it is asked for the names.
class FakeFileManager::FakeListings final : public platform::Listings {
public:
    FakeListings(FakeFileManager& files, std::string_view suffix)
        : files_(files), suffix_(suffix) {}

    bool collect(const std::string& directory,
                 const std::function<void(std::string_view)>& visit) override {
        if (files_.silent_.contains(directory)) {
            return false;
        }
        files_.contentsOfDirectory(directory, [&](std::string_view name) {
            if (name.ends_with(suffix_)) {
                visit(name);
            }
        });
        return true;
    }

private:
    FakeFileManager& files_;
    std::string suffix_;
};

std::unique_ptr<platform::Listings> FakeFileManager::beginListings(
    std::span<const std::string> /*directories*/, std::string_view suffix,
    std::chrono::nanoseconds limit) {
    listingLimit_ = limit;
    return std::make_unique<FakeListings>(*this, suffix);
}

platform::Entry FakeFileManager::entry(const std::string& path) {
    existenceTests_.push_back(path);
    const auto node = nodes_.find(withoutTrailingSlashes(path));
    if (node == nodes_.end()) {
        return platform::Entry::none;
    }
    return node->second.target ? platform::Entry::link : platform::Entry::other;
}

bool FakeFileManager::fileExists(const std::string& path) {
    if (const auto hook = onFollowing) {
        hook(path);
    }
    const auto node = nodes_.find(withoutTrailingSlashes(path));
    return node != nodes_.end() && (!node->second.target || fileExists(*node->second.target));
}

std::size_t FakeFileManager::fileSize(const std::string& path) {
    const auto node = nodes_.find(path);
    return node == nodes_.end() ? 0 : node->second.bytes.size();
}

std::optional<std::string> FakeFileManager::contents(const std::string& path,
                                                     platform::FileIdentity* identity) {
    if (onReading) {
        onReading(path);
    }
    const auto node = nodes_.find(path);
    if (node == nodes_.end() || node->second.isDirectory || !node->second.isReadable) {
        return std::nullopt;
    }
    if (identity != nullptr) {
        *identity = {1, node->second.inode, path, false};
    }
    return node->second.bytes;
}

void FakeFileManager::setHome(const std::string& path) {
    home_ = path;
    createDirectory(path);
}

void FakeFileManager::create(const std::string& path, std::string bytes) {
    enter(path, false).bytes = std::move(bytes);
}

void FakeFileManager::createLink(const std::string& path, const std::string& target) {
    enter(path, false).target = target;
}

void FakeFileManager::createDirectory(const std::string& path) { enter(path, true); }

void FakeFileManager::remove(const std::string& path) {
    std::erase_if(nodes_, [&](const auto& node) {
        return node.first == path || node.first.starts_with(path + "/");
    });
    const auto parent = nodes_.find(parentOf(path));
    if (parent != nodes_.end()) {
        std::erase(parent->second.names, nameOf(path));
    }
}

void FakeFileManager::rename(const std::string& from, const std::string& to) {
    auto bytes = nodes_.at(from).bytes;
    remove(from);
    create(to, std::move(bytes));
}

void FakeFileManager::makeUnreadable(const std::string& path) {
    nodes_.at(path).isReadable = false;
}

std::size_t FakeFileManager::listings(const std::string& directory) const {
    const auto path = withoutTrailingSlashes(directory);
    return static_cast<std::size_t>(std::count_if(
        listings_.begin(), listings_.end(),
        [&](const std::string& listed) { return withoutTrailingSlashes(listed) == path; }));
}

bool FakeFileManager::listWhileSomeVanish(const std::string& path,
                                          const std::function<void(std::string_view)>& visit) {
    const auto names = nodes_.at(path).names;
    for (const auto& name : names) {
        const auto entry = appendPathComponent(path, name);
        if (vanishing_.erase(entry) > 0) {
            remove(entry);
        }
    }
    for (const auto& name : names) {
        visit(name);
    }
    return true;
}

FakeFileManager::Node& FakeFileManager::enter(const std::string& path, bool isDirectory) {
    if (!nodes_.contains(path)) {
        enter(parentOf(path), true).names.push_back(nameOf(path));
        nodes_[path].isDirectory = isDirectory;
        nodes_[path].inode = ++lastInode_;
    }
    return nodes_.at(path);
}

}  // namespace glintmark::doubles
