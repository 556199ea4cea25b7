#include "link/IconReport.h"

#include <sysexits.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/graphics/Geometry.h"
#include "link/Texts.h"

namespace glintmark::link {

namespace {

using nlohmann::ordered_json;
using Outcome = IconResult::Outcome;

/// The name of an outcome in JSON, the end of the key of its texts, and its exit status.
struct OutcomeInfo {
    std::string name;
    int status = EX_OK;
};

OutcomeInfo infoOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::set:
            return {"set"};
        case Outcome::planned:
            return {"planned"};
        case Outcome::present:
            return {"present"};
        case Outcome::unreadable:
            return {"unreadable", EX_NOINPUT};
        case Outcome::noLink:
            return {"noLink", EX_DATAERR};
        case Outcome::noAddress:
            return {"noAddress", EX_DATAERR};
        case Outcome::noIcon:
            return {"noIcon", EX_UNAVAILABLE};
        case Outcome::refused:
            return {"refused", EX_CANTCREAT};
        case Outcome::late:
            return {"late", EX_TEMPFAIL};
        case Outcome::interrupted:
            return {"interrupted", EX_TEMPFAIL};
    }
    return {};
}

std::string dumped(const ordered_json& object) {
    return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

std::string sizeText(Size size) {
    return std::to_string(truncatedToInt(size.width)) + "x" +
           std::to_string(truncatedToInt(size.height));
}

}  // namespace

void IconReport::add(const IconResult& result) {
    ++added_;
    ++outcomes_[result.outcome];
    if (result.outcome == Outcome::set && result.source) {
        ++sources_[*result.source];
    }
    if (status_ == EX_OK) {
        status_ = infoOf(result.outcome).status;
    }
}

IconReport::Line IconReport::line(const IconResult& result) {
    const OutcomeInfo info = infoOf(result.outcome);
    std::string message = text("icon." + info.name);
    if (result.outcome == Outcome::set && result.source) {
        message +=
            " (" + std::string(caseName(*result.source)) + ", " + sizeText(result.size) + ")";
    } else if (result.outcome == Outcome::planned) {
        message += " " + result.link;
    }
    return {printable(result.path + ": " + message), info.status != EX_OK};
}

std::string IconReport::jsonLine(const IconResult& result) {
    ordered_json object{{"kind", "file"}, {"path", result.path}};
    object["result"] = infoOf(result.outcome).name;
    object["link"] = result.link.empty() ? ordered_json() : ordered_json(result.link);
    object["source"] = result.source ? ordered_json(caseName(*result.source)) : ordered_json();
    object["width"] = result.source ? ordered_json(result.size.width) : ordered_json();
    object["height"] = result.source ? ordered_json(result.size.height) : ordered_json();
    return dumped(object);
}

std::string IconReport::bar(std::size_t columns) const {
    constexpr std::size_t minimumWidth = 8;
    constexpr std::size_t maximumWidth = 40;
    const auto without = count(Outcome::planned) + count(Outcome::present);
    const auto set = count(Outcome::set);
    const std::string counts = " " + std::to_string(added_) + "/" + std::to_string(files_) + "  +" +
                               std::to_string(set) + " -" + std::to_string(added_ - set - without);
    if (columns < counts.size() + minimumWidth) {
        return counts.substr(1, columns);
    }
    const auto width = std::min(columns - counts.size() - 2, maximumWidth);
    const auto filled = files_ == 0 ? width : width * added_ / files_;
    return "[" + std::string(filled, '#') + std::string(width - filled, '.') + "]" + counts;
}

std::string IconReport::summary() const {
    const std::string all = std::to_string(added_);
    std::string lines =
        count(Outcome::planned) > 0
            ? text("summary.planned", {std::to_string(count(Outcome::planned)), all})
            : text("summary.set", {std::to_string(count(Outcome::set)), all});
    lines += "\n";
    for (const auto& [source, number] : sources_) {
        lines += "  " + std::to_string(number) + "  " + std::string(caseName(source)) + "\n";
    }
    for (const auto& [outcome, number] : outcomes_) {
        if (outcome != Outcome::set && outcome != Outcome::planned) {
            lines +=
                "  " + std::to_string(number) + "  " + text("icon." + infoOf(outcome).name) + "\n";
        }
    }
    return lines;
}

std::string IconReport::jsonSummary() const {
    ordered_json object{{"kind", "summary"}, {"files", added_}};
    ordered_json results = ordered_json::object();
    for (const auto& [outcome, number] : outcomes_) {
        results[infoOf(outcome).name] = number;
    }
    ordered_json sources = ordered_json::object();
    for (const auto& [source, number] : sources_) {
        sources[std::string(caseName(source))] = number;
    }
    object["results"] = results;
    object["sources"] = sources;
    return dumped(object);
}

std::size_t IconReport::count(Outcome outcome) const {
    const auto found = outcomes_.find(outcome);
    return found == outcomes_.end() ? 0 : found->second;
}

}  // namespace glintmark::link
