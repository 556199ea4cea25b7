#include "linux/images/DecodeQueue.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <utility>

namespace glintmark::platform {

namespace {

constexpr std::size_t sizes = 2;

std::size_t length(const DecodeTask& task) { return task.data.size(); }

}  // namespace

DecodeQueue::Tasks DecodeQueue::add(DecodeTask task, DecodeSize size) {
    bytes_ += length(task);
    const std::shared_ptr<DecodeLink> link = task.link;
    auto& waiting = link->waiting[index(size)];
    if (waiting.empty()) {
        turns_[index(size)].push_back(link);
    }
    // Sorted by length; of equal ones, the earlier goes first.
    waiting.insert(std::ranges::upper_bound(waiting, length(task), {}, length), std::move(task));
    Tasks left;
    while (bytes_ > maximumBytes_) {
        left.push_back(removeFromGreediest());
    }
    return left;
}

std::optional<DecodeTask> DecodeQueue::take(
    DecodeSize size, const std::function<bool(const DecodeLink&)>& canStart) {
    Links& turns = turns_[index(size)];
    const auto next =
        std::ranges::find_if(turns, [&](const auto& candidate) { return canStart(*candidate); });
    if (next == turns.end()) {
        return std::nullopt;
    }
    const std::shared_ptr<DecodeLink> link = *next;
    turns.erase(next);
    turns.push_back(link);
    return remove(*link, index(size), 0);
}

const DecodeLink* DecodeQueue::find(DecodeSize size,
                                    const std::function<bool(const DecodeLink&)>& condition) const {
    const Links& turns = turns_[index(size)];
    const auto found =
        std::ranges::find_if(turns, [&](const auto& link) { return condition(*link); });
    return found != turns.end() ? found->get() : nullptr;
}

DecodeQueue::Tasks DecodeQueue::takeAll() {
    Tasks all;
    for (Links& turns : turns_) {
        while (!turns.empty()) {
            const std::shared_ptr<DecodeLink> link = turns.front();
            std::ranges::move(takeAll(*link), std::back_inserter(all));
        }
    }
    return all;
}

DecodeQueue::Tasks DecodeQueue::takeAll(const DecodeLink& link) {
    Tasks all;
    for (std::size_t size = 0; size < sizes; ++size) {
        const auto found =
            std::ranges::find(turns_[size], &link, &std::shared_ptr<DecodeLink>::get);
        if (found == turns_[size].end()) {
            continue;
        }
        const std::shared_ptr<DecodeLink> owner = *found;
        while (!owner->waiting[size].empty()) {
            all.push_back(remove(*owner, size, 0));
        }
    }
    return all;
}

/// Removes the longest image of the link whose images take most. A link with one image is spared as
/// long as another has several.
DecodeTask DecodeQueue::removeFromGreediest() {
    const auto rank = [](const std::shared_ptr<DecodeLink>& link) {
        std::size_t images = 0;
        std::size_t bytes = 0;
        for (const auto& waiting : link->waiting) {
            images += waiting.size();
            bytes =
                std::transform_reduce(waiting.begin(), waiting.end(), bytes, std::plus(), length);
        }
        return std::pair(images > 1, bytes);
    };
    std::shared_ptr<DecodeLink> greediest;
    for (const Links& turns : turns_) {
        const auto candidate = std::ranges::max_element(turns, {}, rank);
        if (candidate != turns.end() && (!greediest || rank(greediest) < rank(*candidate))) {
            greediest = *candidate;
        }
    }
    const auto lengthOfLongest = [](const auto& waiting) {
        return waiting.empty() ? 0 : length(waiting.back());
    };
    auto& all = greediest->waiting;
    const auto longest = std::ranges::max_element(all, {}, lengthOfLongest);
    return remove(*greediest, static_cast<std::size_t>(longest - all.begin()), longest->size() - 1);
}

DecodeTask DecodeQueue::remove(DecodeLink& link, std::size_t size, std::size_t position) {
    auto& waiting = link.waiting[size];
    const auto at = waiting.begin() + static_cast<std::ptrdiff_t>(position);
    DecodeTask task = std::move(*at);
    waiting.erase(at);
    bytes_ -= length(task);
    if (waiting.empty()) {
        std::erase(turns_[size], task.link);
    }
    return task;
}

}  // namespace glintmark::platform
