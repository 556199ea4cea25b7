#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "favicon/IconCandidate.h"
#include "link/FetchRecorder.h"

namespace glintmark::link {

/// Everything that one fetch did.
struct FetchReport {
    /// `found` in the order of arrival. The winner is the one that the program chooses.
    FetchReport(std::vector<RequestRecord> requestRecords, std::vector<IconCandidate> found);

    std::vector<RequestRecord> requests;
    std::vector<IconCandidate> candidates;
    std::optional<std::size_t> winner;  ///< Index into `candidates`.

    /// The address of the request that returned the candidate's image; empty when none did.
    std::string addressOf(const IconCandidate& candidate) const;

    /// True if no candidate has a higher score than the winner, which there must be. Otherwise
    /// those with a higher score are too narrow.
    bool hasWinnerHighestScore() const;
};

/// Three tables for a reader: requests, candidates, winner.
std::string asTable(const FetchReport& report);

/// One JSON object a line: every request, every candidate, then the winner (null for none).
std::string asJSONLines(const FetchReport& report);

}  // namespace glintmark::link
