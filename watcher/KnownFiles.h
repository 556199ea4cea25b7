#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <utility>

namespace glintmark {

/// The paths of the link files that are not new. Only grows.
///
/// A folder is listed in the same order again and again, and a hash lookup among thousands of paths
/// is a cache miss. So each file remembers which one was looked up after it last time.
class KnownFiles {
public:
    void insert(const std::string& path) { files_.try_emplace(path); }
    std::size_t size() const { return files_.size(); }

    /// True if `path` was inserted. First tries the file that followed the one found before.
    bool find(const std::string& path);

private:
    struct Successor {
        std::pair<const std::string, Successor>* file = nullptr;
    };
    using Files = std::unordered_map<std::string, Successor>;

    Files::value_type* nodeOf(const std::string& path);

    Files files_;
    Files::value_type* lastFound_ = nullptr;
};

}  // namespace glintmark
