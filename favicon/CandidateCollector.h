#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "base/graphics/Image.h"
#include "base/work/DispatchGroup.h"
#include "favicon/IconCandidate.h"
#include "favicon/IconSource.h"

namespace glintmark {

/// Collects the candidates of several downloads that run at once, in the order of their arrival.
///
/// Take the completion of a download from here before starting the download, because the completion
/// may run before the starting call returns. Each completion is called exactly once, on any thread.
class CandidateCollector {
public:
    using ImageCompletion = std::function<void(std::shared_ptr<const Image>)>;
    using CandidatesCompletion = std::function<void(std::vector<IconCandidate>)>;

    CandidateCollector();

    /// For a download of one image, which becomes a candidate unless it is null.
    ImageCompletion awaitImage(IconSource source) const;

    /// For a download of several candidates.
    CandidatesCompletion awaitCandidates() const;

    /// Calls `completion` on the global queue with all candidates, after all downloads have
    /// completed. Call this once, after the last download has started.
    void whenComplete(CandidatesCompletion completion) const;

private:
    struct List;

    DispatchGroup group_;
    std::shared_ptr<List> found_;
};

}  // namespace glintmark
