#include "favicon/CandidateCollector.h"

#include <mutex>
#include <utility>

#include "platform/DispatchQueues.h"
#include "platform/Platform.h"

namespace glintmark {

struct CandidateCollector::List {
    void add(IconCandidate candidate) {
        const std::lock_guard lock(mutex);
        candidates.push_back(std::move(candidate));
    }

    std::mutex mutex;
    std::vector<IconCandidate> candidates;
};

CandidateCollector::CandidateCollector() : found_(std::make_shared<List>()) {}

CandidateCollector::ImageCompletion CandidateCollector::awaitImage(IconSource source) const {
    group_.enter();
    return [group = group_, found = found_, source](std::shared_ptr<const Image> image) {
        if (image) {
            found->add(IconCandidate(std::move(image), source));
        }
        group.leave();
    };
}

CandidateCollector::CandidatesCompletion CandidateCollector::awaitCandidates() const {
    group_.enter();
    return [group = group_, found = found_](std::vector<IconCandidate> candidates) {
        for (IconCandidate& candidate : candidates) {
            found->add(std::move(candidate));
        }
        group.leave();
    };
}

void CandidateCollector::whenComplete(CandidatesCompletion completion) const {
    // Every completion has left the group, so nothing changes the list any more.
    group_.notify(
        platform::services().dispatchQueues.global(platform::QualityOfService::userInitiated),
        [found = found_, completion = std::move(completion)] {
            completion(std::move(found->candidates));
        });
}

}  // namespace glintmark
