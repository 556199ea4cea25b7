#include <algorithm>
#include <utility>

#include "base/text/RegularExpression.h"
#include "base/text/TextEncoding.h"
#include "base/url/URLComponents.h"
#include "favicon/FaviconFetcher.h"
#include "favicon/IconAddress.h"
#include "platform/Platform.h"

namespace glintmark {

using platform::services;

namespace {

constexpr std::size_t maximumDownloads = 6;  // Of one page.

constexpr std::int64_t defaultAppleTouchIconSize = 180;  // Pixels.
constexpr std::int64_t defaultIconSize = 32;             // Pixels.

/// A pattern searched in any letter case.
///
/// Asking the engine costs far more than a look for the word that every match contains, and most
/// tags do not hold it. The word must be spelt in letters that no character outside ASCII stands
/// for when case is ignored, so without k and s (the Kelvin sign and the long s).
class LinkPattern {
public:
    LinkPattern(std::string_view pattern, std::string_view word)
        : word_(word),
          expression_(RegularExpression::compile(pattern, {.caseInsensitive = true})) {}

    bool isFoundIn(std::string_view text) const { return firstMatch(text).has_value(); }

    /// What the first capture group holds in the first match; absent without a match.
    std::optional<std::string_view> firstCapture(std::string_view text) const {
        const auto match = firstMatch(text);
        if (!match) {
            return std::nullopt;
        }
        return match->at(1).in(text);
    }

private:
    std::optional<std::vector<TextRange>> firstMatch(std::string_view text) const {
        if (!expression_ || !containsIgnoringCase(text, word_)) {
            return std::nullopt;
        }
        return expression_->firstMatch(text);
    }

    std::string_view word_;
    std::optional<RegularExpression> expression_;
};

/// What recognises icon links in markup, compiled once for all pages.
struct LinkPatterns {
    std::optional<RegularExpression> tag = RegularExpression::compile(
        R"(<link\s+[^>]*>)", {.caseInsensitive = true, .dotMatchesLineSeparators = true});
    // Without a closing quote, so that values which only begin with the word count too.
    LinkPattern appleTouchIcon{R"(rel\s*=\s*["']apple-touch-icon)", "apple-touch-icon"};
    LinkPattern icon{R"(rel\s*=\s*["'](?:shortcut\s+)?icon["'])", "icon"};
    LinkPattern href{R"(href\s*=\s*["']([^"']+)["'])", "href"};
    LinkPattern sizes{R"(sizes\s*=\s*["']([\d]+)x[\d]+["'])", "ize"};
};

const LinkPatterns& linkPatterns() {
    static const LinkPatterns patterns;
    return patterns;
}

/// What one `<link>` tag declares. The address points into the page.
struct IconLink {
    std::string_view address;
    std::int64_t size;
    bool isAppleTouchIcon;
};

/// Absent when the tag declares no icon that can be used.
std::optional<IconLink> iconLink(std::string_view tag) {
    const LinkPatterns& patterns = linkPatterns();
    const bool isAppleTouchIcon = patterns.appleTouchIcon.isFoundIn(tag);
    if (!isAppleTouchIcon && !patterns.icon.isFoundIn(tag)) {
        return std::nullopt;
    }
    const auto address = patterns.href.firstCapture(tag);
    if (!address || endsWithSVG(*address)) {
        return std::nullopt;
    }
    std::int64_t size = isAppleTouchIcon ? defaultAppleTouchIconSize : defaultIconSize;
    if (const auto width = patterns.sizes.firstCapture(tag)) {
        size = decimalInteger(*width).value_or(size);
    }
    return IconLink{*address, size, isAppleTouchIcon};
}

/// Plain icons go first, however large an Apple touch icon is; then larger sizes.
bool goesBefore(const IconLink& a, const IconLink& b) {
    if (a.isAppleTouchIcon != b.isAppleTouchIcon) {
        return !a.isAppleTouchIcon;
    }
    return a.size > b.size;
}

/// Downloads all `entries` at once.
void downloadEntries(const std::vector<IconEntry>& entries,
                     FaviconFetcher::CandidatesCompletion completion) {
    const CandidateCollector collector;
    for (const IconEntry& entry : entries) {
        const auto source =
            entry.isAppleTouchIcon ? IconSource::htmlAppleTouchIcon : IconSource::htmlIcon;
        FaviconFetcher::downloadImage(entry.url, collector.awaitImage(source));
    }
    collector.whenComplete(std::move(completion));
}

}  // namespace

void FaviconFetcher::fetchAllFromHTML(const URL& url, CandidatesCompletion completion) {
    services().urlSession.startDataTask(
        browserRequest(url), [url, completion = std::move(completion)](platform::URLResult result) {
            // Any body is scanned, whatever the status: error pages declare icons too. A body that
            // is no UTF-8 would be read as ASCII next, but whatever is ASCII is UTF-8 already.
            if (!result.body || !isUTF8(*result.body)) {
                completion({});
                return;
            }
            const auto entries = extractIconURLs(*result.body, url, maximumDownloads);
            if (entries.empty()) {
                completion({});
                return;
            }
            result.body.reset();
            downloadEntries(entries, completion);
        });
}

std::vector<IconEntry> FaviconFetcher::extractIconURLs(std::string_view html, const URL& baseURL,
                                                       std::size_t limit) {
    const auto& tagPattern = linkPatterns().tag;
    if (!tagPattern) {
        return {};
    }
    // Every match ends at a ">". Behind the last one each "<link " would be tried in vain up to the
    // end of the text, which takes quadratic time.
    html = html.substr(0, html.rfind('>') + 1);

    std::vector<IconLink> links;
    for (const TextRange range : tagPattern->matches(html)) {
        if (const auto link = iconLink(range.in(html))) {
            links.push_back(*link);
        }
    }
    std::ranges::stable_sort(links, goesBefore);

    // Resolved in the final order, so that a page of a million links costs no million URLs.
    std::vector<IconEntry> entries;
    for (const IconLink& link : links) {
        if (entries.size() == limit) {
            break;
        }
        if (auto url = resolveURL(link.address, baseURL)) {
            entries.push_back({std::move(*url), link.size, link.isAppleTouchIcon});
        }
    }
    return entries;
}

std::optional<URL> FaviconFetcher::resolveURL(std::string_view address, const URL& base) {
    if (address.starts_with("http://") || address.starts_with("https://")) {
        return URL::parse(address);
    }
    if (address.starts_with("//")) {
        return URL::parse("https:" + std::string(address));
    }
    if (address.starts_with('/')) {
        // A "?" or "#" in the address becomes part of the path, and the base's port is dropped;
        // both are kept on purpose.
        return URLComponents{base.scheme(), base.host(), std::string(address)}.url();
    }
    return URL::parse(address, base);
}

}  // namespace glintmark
