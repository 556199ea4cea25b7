#pragma once

#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "favicon/IconCandidate.h"

namespace glintmark {

/// The candidates that several callbacks of one fetch gather, in the order of their arrival.
class CandidateList {
public:
    /// Does nothing for an absent candidate. Any thread.
    void addCandidate(std::optional<IconCandidate> candidate) {
        if (!candidate) {
            return;
        }
        const std::lock_guard lock(lock_);
        candidates_.push_back(std::move(*candidate));
    }

    /// All of them, once no callback adds any more: every addition must have happened before.
    std::vector<IconCandidate> take() { return std::move(candidates_); }

private:
    std::mutex lock_;
    std::vector<IconCandidate> candidates_;
};

}  // namespace glintmark
