#include "link/FetchReport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/graphics/Geometry.h"
#include "favicon/FaviconFetcher.h"

namespace glintmark::link {

namespace {

using nlohmann::ordered_json;

double milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

std::string sizeText(const Image& image) {
    return std::to_string(truncatedToInt(image.size().width)) + "x" +
           std::to_string(truncatedToInt(image.size().height));
}

std::string outcomeText(const RequestRecord& request) {
    std::string text = request.status ? std::to_string(*request.status) : "no response";
    text += request.bytes ? ", " + std::to_string(*request.bytes) + " bytes" : ", no body";
    if (request.wasDecoded) {
        text += request.image ? ", image " + sizeText(*request.image) : ", no image";
    }
    return request.error ? text + ", " + *request.error : text;
}

std::string leftAligned(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text + " ";
}

std::string rightAligned(std::string text, std::size_t width) {
    text.insert(0, std::max(width, text.size()) - text.size(), ' ');
    return text + " ";
}

std::string millisecondsText(std::chrono::nanoseconds time) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", milliseconds(time));
    return text.data();
}

constexpr std::size_t timeWidth = 9;
constexpr std::size_t agentWidth = 7;
constexpr std::size_t outcomeIndent = 2 * (timeWidth + 1) + agentWidth + 1;

/// A request takes two lines, since addresses are long.
std::string requestText(const RequestRecord& request) {
    const auto took = request.end ? millisecondsText(*request.end - request.begin) : "unfinished";
    return rightAligned(millisecondsText(request.begin), timeWidth) +
           rightAligned(took, timeWidth) +
           leftAligned(request.userAgent ? "browser" : "own", agentWidth) + request.url + "\n" +
           std::string(outcomeIndent, ' ') + outcomeText(request) + "\n";
}

/// A row of the candidates' table.
std::string candidateText(const std::string& mark, const std::string& source,
                          const std::string& size, const std::string& transparent,
                          const std::string& score, const std::string& address) {
    return mark + " " + leftAligned(source, 18) + rightAligned(size, 9) +
           leftAligned(transparent, 11) + rightAligned(score, 5) + address + "\n";
}

ordered_json asJSON(const RequestRecord& request) {
    ordered_json object{{"kind", "request"}, {"url", request.url}};
    object["userAgent"] = request.userAgent ? ordered_json(*request.userAgent) : ordered_json();
    object["beginMs"] = milliseconds(request.begin);
    object["durationMs"] =
        request.end ? ordered_json(milliseconds(*request.end - request.begin)) : ordered_json();
    object["status"] = request.status ? ordered_json(*request.status) : ordered_json();
    object["bytes"] = request.bytes ? ordered_json(*request.bytes) : ordered_json();
    object["error"] = request.error ? ordered_json(*request.error) : ordered_json();
    object["decoded"] = request.wasDecoded;
    object["image"] = request.image ? ordered_json{{"width", request.image->size().width},
                                                   {"height", request.image->size().height}}
                                    : ordered_json();
    return object;
}

ordered_json asJSON(const IconCandidate& candidate, const FetchReport& report) {
    return {{"source", caseName(candidate.source)},     {"url", report.addressOf(candidate)},
            {"width", candidate.image->size().width},   {"height", candidate.image->size().height},
            {"transparent", candidate.hasTransparency}, {"score", candidate.score()}};
}

/// A server's texts may be in any encoding. Bytes that are not UTF-8 are replaced.
std::string line(const ordered_json& object) {
    return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace

FetchReport::FetchReport(std::vector<RequestRecord> requestRecords,
                         std::vector<IconCandidate> found)
    : requests(std::move(requestRecords)), candidates(std::move(found)) {
    const auto best = FaviconFetcher::pickBest(candidates);
    if (best) {
        const auto position = std::ranges::find(candidates, best->image, &IconCandidate::image);
        winner = static_cast<std::size_t>(position - candidates.begin());
    }
}

std::string FetchReport::addressOf(const IconCandidate& candidate) const {
    const auto request = std::ranges::find(requests, candidate.image, &RequestRecord::image);
    return request != requests.end() ? request->url : "";
}

bool FetchReport::hasWinnerHighestScore() const {
    const auto highest = candidates.at(*winner).score();
    return std::ranges::all_of(
        candidates, [&](const IconCandidate& candidate) { return candidate.score() <= highest; });
}

std::string asTable(const FetchReport& report) {
    std::string text = rightAligned("begin ms", timeWidth) + rightAligned("took ms", timeWidth) +
                       leftAligned("agent", agentWidth) + "request and outcome\n";
    for (const RequestRecord& request : report.requests) {
        text += requestText(request);
    }
    text += "\n" + candidateText(" ", "source", "size", "transparent", "score", "address");
    for (std::size_t i = 0; i < report.candidates.size(); ++i) {
        const IconCandidate& candidate = report.candidates[i];
        text +=
            candidateText(i == report.winner ? "*" : " ", std::string(caseName(candidate.source)),
                          sizeText(*candidate.image), candidate.hasTransparency ? "yes" : "no",
                          std::to_string(candidate.score()), report.addressOf(candidate));
    }
    if (!report.winner) {
        return text + "\nNo icon.\n";
    }
    const IconCandidate& winner = report.candidates[*report.winner];
    text +=
        "\nWinner: " + std::string(caseName(winner.source)) + " " + report.addressOf(winner) + "\n";
    return text + (report.hasWinnerHighestScore()
                       ? ""
                       : "(No score helps an image that is too narrow.)\n");
}

std::string asJSONLines(const FetchReport& report) {
    std::string text;
    for (const RequestRecord& request : report.requests) {
        text += line(asJSON(request));
    }
    for (const IconCandidate& candidate : report.candidates) {
        ordered_json object{{"kind", "candidate"}};
        object.update(asJSON(candidate, report));
        text += line(object);
    }
    const auto winner =
        report.winner ? asJSON(report.candidates[*report.winner], report) : ordered_json();
    return text + line({{"kind", "winner"}, {"candidate", winner}});
}

}  // namespace glintmark::link
