#include "linux/network/HTTPCache.h"

#include <iterator>
#include <utility>

namespace glintmark::platform {

namespace {

/// The nodes of the list and of the table, roughly.
constexpr std::size_t overheadBytes = 128;

}  // namespace

std::size_t HTTPCache::Entry::bytes() const {
    return overheadBytes + sizeof(Entry) + request.size() + answer.body.size() +
           answer.location.value_or("").size();
}

const HTTPCache::Answer* HTTPCache::find(const std::string& request, Time now) {
    const auto found = byRequest_.find(request);
    if (found == byRequest_.end()) {
        return nullptr;
    }
    const auto entry = found->second;
    if (entry->freshUntil <= now) {  // section 4.2; nothing is served stale
        remove(entry);
        return nullptr;
    }
    entries_.splice(entries_.begin(), entries_, entry);
    return &entry->answer;
}

void HTTPCache::keep(std::string request, Answer answer, Time freshUntil) {
    if (const auto found = byRequest_.find(request); found != byRequest_.end()) {
        remove(found->second);
    }
    Entry entry{std::move(request), std::move(answer), freshUntil};
    if (entry.bytes() > maximumBytesOfOne) {
        return;
    }
    bytes_ += entry.bytes();
    entries_.push_front(std::move(entry));
    byRequest_[entries_.front().request] = entries_.begin();
    while (bytes_ > maximumBytes) {
        remove(std::prev(entries_.end()));
    }
}

void HTTPCache::remove(Entries::iterator entry) {
    bytes_ -= entry->bytes();
    byRequest_.erase(entry->request);
    entries_.erase(entry);
}

}  // namespace glintmark::platform
