#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "link/IconRun.h"

namespace glintmark::link {

/// The texts about a run: one line for each file, a progress bar, and what came of it all.
class IconReport {
public:
    /// What is written for one file: to standard output, or else to standard error.
    struct Line {
        std::string text;  ///< One line, without its end.
        bool isError;
    };

    explicit IconReport(std::size_t files) : files_(files) {}

    void add(const IconResult& result);

    /// A line for a reader.
    static Line line(const IconResult& result);

    /// The result as a JSON object on one line. Bytes that are not UTF-8 are replaced.
    static std::string jsonLine(const IconResult& result);

    /// A bar with counts, `columns` wide at most.
    std::string bar(std::size_t columns) const;

    /// How many files got an icon, from where, and why the others got none; several lines.
    std::string summary() const;
    std::string jsonSummary() const;

    /// An exit status of sysexits.h: that of the first failure, 0 if there was none.
    int status() const { return status_; }

private:
    std::size_t count(IconResult::Outcome outcome) const;

    std::size_t files_;
    std::size_t added_ = 0;
    std::map<IconResult::Outcome, std::size_t> outcomes_;
    std::map<IconSource, std::size_t> sources_;
    int status_ = 0;
};

}  // namespace glintmark::link
