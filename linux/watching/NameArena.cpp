#include "linux/watching/NameArena.h"

#include <cstring>

namespace glintmark::platform {

NameArena::Offset NameArena::add(std::string_view name) {
    if (filled_ + 1 + name.size() > chunkBytes) {
        if (chunks_.size() * chunkBytes > maximumOffset) {
            return 0;
        }
        chunks_.emplace_back(new char[chunkBytes]);
        filled_ = chunks_.size() == 1 ? 1 : 0;  // no name has offset 0
    }
    char* const place = chunks_.back().get() + filled_;
    *place = static_cast<char>(static_cast<unsigned char>(name.size()));
    std::memcpy(place + 1, name.data(), name.size());
    const auto offset = (chunks_.size() - 1) * chunkBytes + filled_;
    filled_ += 1 + name.size();
    return static_cast<Offset>(offset);
}

std::string_view NameArena::at(Offset offset) const {
    const char* const place = chunks_[offset / chunkBytes].get() + offset % chunkBytes;
    return {place + 1, static_cast<unsigned char>(*place)};
}

bool NameArena::isWasteful() const {
    return droppedBytes_ > chunkBytes && droppedBytes_ > chunks_.size() * chunkBytes / 2;
}

}  // namespace glintmark::platform
