#include "watcher/KnownFiles.h"

namespace glintmark {

bool KnownFiles::find(const std::string& path) {
    auto* found = lastFound_ != nullptr ? lastFound_->second.file : nullptr;
    if (found == nullptr || found->first != path) {
        found = nodeOf(path);
        if (found == nullptr) {
            return false;
        }
        if (lastFound_ != nullptr) {
            lastFound_->second.file = found;
        }
    }
    lastFound_ = found;
    return true;
}

KnownFiles::Files::value_type* KnownFiles::nodeOf(const std::string& path) {
    const auto found = files_.find(path);
    return found != files_.end() ? &*found : nullptr;
}

}  // namespace glintmark
