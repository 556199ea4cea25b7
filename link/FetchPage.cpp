#include "link/FetchPage.h"

#include <glib.h>

#include <chrono>
#include <string_view>

#include "base/graphics/Geometry.h"
#include "link/Texts.h"
#include "linux/glib/GLibHandles.h"
#include "linux/images/PNGWriter.h"

namespace glintmark::link {

namespace {

// Nothing is loaded, and no script of a site could run even if an escape were missing.
constexpr std::string_view beginning =
    "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\">\n"
    "<meta http-equiv=\"Content-Security-Policy\" "
    "content=\"default-src 'none'; img-src data:; style-src 'unsafe-inline'\">\n"
    "<meta name=\"viewport\" content=\"width=device-width\">\n<style>\n"
    ":root { color-scheme: light dark; font: 15px/1.5 sans-serif; }\n"
    "body { margin: 2em auto; max-width: 70em; padding: 0 1em; }\n"
    "table { border-collapse: collapse; width: 100%; }\n"
    "th, td { border-bottom: 1px solid #8886; padding: .4em .6em; text-align: left; "
    "vertical-align: top; overflow-wrap: anywhere; }\n"
    "td.number { text-align: right; white-space: nowrap; }\n"
    "tr.winner { background: #fc03; }\n"
    "img { max-width: 128px; max-height: 128px; background: #8883; }\n</style>\n";

std::string escaped(std::string_view text) {
    const platform::GStringHandle valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    const platform::GStringHandle markup(g_markup_escape_text(valid.get(), -1));
    return markup.get();
}

std::string cell(std::string_view content, const char* kind = "td") {
    const std::string name(kind);
    return "<" + name + ">" + escaped(content) + "</" + name + ">";
}

std::string number(std::string_view content) {
    return "<td class=\"number\">" + escaped(content) + "</td>";
}

std::string heading(std::string_view content) { return "<h2>" + escaped(content) + "</h2>\n"; }

/// The first row of a table whose columns are named by these keys.
std::string tableHead(std::initializer_list<const char*> keys) {
    std::string row = "<table>\n<tr>";
    for (const auto* key : keys) {
        row += cell(text(key), "th");
    }
    return row + "</tr>\n";
}

std::string picture(const Image& image) {
    if (!image.bitmap()) {
        return "<td></td>";
    }
    const std::string png = platform::encodedPNG(*image.bitmap());
    const platform::GStringHandle digits(
        g_base64_encode(reinterpret_cast<const guchar*>(png.data()), png.size()));
    return std::string(R"(<td><img alt="" src="data:image/png;base64,)") + digits.get() +
           R"("></td>)";
}

std::string sizeText(const Image& image) {
    return std::to_string(truncatedToInt(image.size().width)) + "×" +
           std::to_string(truncatedToInt(image.size().height));
}

std::string candidateRow(const FetchReport& report, std::size_t index) {
    const IconCandidate& candidate = report.candidates.at(index);
    const auto parts = candidate.scoreParts();
    const std::string sum = std::to_string(parts.largeWidth) + " + " + std::to_string(parts.width) +
                            " + " + std::to_string(parts.transparency) + " + " +
                            std::to_string(parts.source);
    return std::string(index == report.winner ? "<tr class=\"winner\">" : "<tr>") +
           picture(*candidate.image) + cell(caseName(candidate.source)) +
           number(sizeText(*candidate.image)) +
           cell(text(candidate.hasTransparency ? "explain.yes" : "explain.no")) + number(sum) +
           number(std::to_string(candidate.score())) + cell(report.addressOf(candidate)) +
           "</tr>\n";
}

std::string requestRow(const RequestRecord& request) {
    const auto milliseconds = [](std::chrono::nanoseconds time) {
        return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(time).count());
    };
    return "<tr>" + number(milliseconds(request.begin)) +
           number(request.end ? milliseconds(*request.end - request.begin) : "") +
           number(request.status ? std::to_string(*request.status) : "") +
           number(request.bytes ? std::to_string(*request.bytes) : "") + cell(request.url) +
           cell(request.error.value_or("")) + "</tr>\n";
}

std::string verdict(const FetchReport& report) {
    if (!report.winner) {
        return text("icon.noIcon");
    }
    return text(report.hasWinnerHighestScore() ? "explain.highest" : "explain.tooNarrow",
                {caseName(report.candidates.at(*report.winner).source)});
}

}  // namespace

std::string asPage(const FetchReport& report, const std::string& link) {
    std::string page(beginning);
    page += "<title>" + escaped(link) + "</title></head><body>\n<h1>" + escaped(link) + "</h1>\n";
    page += "<p>" + escaped(verdict(report)) + "</p>\n";
    page += "<p>" + escaped(text("explain.rule")) + "</p>\n";
    page += heading(text("explain.candidates"));
    page += tableHead({"explain.picture", "explain.source", "explain.size", "explain.transparent",
                       "explain.sum", "explain.score", "explain.address"});
    for (std::size_t i = 0; i < report.candidates.size(); ++i) {
        page += candidateRow(report, i);
    }
    page += "</table>\n" + heading(text("explain.requests"));
    page += tableHead({"explain.begin", "explain.took", "explain.status", "explain.bytes",
                       "explain.address", "explain.error"});
    for (const auto& request : report.requests) {
        page += requestRow(request);
    }
    return page + "</table>\n</body></html>\n";
}

}  // namespace glintmark::link
