#include <algorithm>
#include <utility>

#include "base/text/RegularExpression.h"
#include "base/text/TextCase.h"
#include "base/text/TextEncoding.h"
#include "base/url/URLComponents.h"
#include "favicon/FaviconFetcher.h"
#include "favicon/IconAddress.h"
#include "platform/Platform.h"

namespace glintmark {

using platform::services;

namespace {

constexpr std::size_t maximumDownloads = 6;  // for one page

constexpr std::int64_t defaultAppleTouchIconSize = 180;  // pixels
constexpr std::int64_t defaultIconSize = 32;             // pixels

/// A pattern that matches in any letter case.
///
/// Every match contains `word`. Looking for the word first is far cheaper than running the engine,
/// and most tags do not contain it. The word must not contain k or s: when case is ignored, the
/// engine also takes the Kelvin sign for k and the long s for s, which are outside ASCII.
class LinkPattern {
public:
    LinkPattern(std::string_view pattern, std::string_view word)
        : word_(word),
          expression_(RegularExpression::compile(pattern, {.caseInsensitive = true})) {}

    bool isFoundIn(std::string_view text) const { return firstMatch(text).has_value(); }

    /// The first capture group of the first match. Absent if there is no match.
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

/// The patterns that recognise icon links, compiled once for all pages.
struct LinkPatterns {
    std::optional<RegularExpression> tag = RegularExpression::compile(
        R"(<link\s+[^>]*>)", {.caseInsensitive = true, .dotMatchesLineSeparators = true});
    // Without a closing quote, so that "apple-touch-icon-precomposed" matches, too.
    LinkPattern appleTouchIcon{R"(rel\s*=\s*["']apple-touch-icon)", "apple-touch-icon"};
    LinkPattern icon{R"(rel\s*=\s*["'](?:shortcut\s+)?icon["'])", "icon"};
    LinkPattern href{R"(href\s*=\s*["']([^"']+)["'])", "href"};
    LinkPattern sizes{R"(sizes\s*=\s*["']([\d]+)x[\d]+["'])", "ize"};
};

const LinkPatterns& linkPatterns() {
    static const LinkPatterns patterns;
    return patterns;
}

/// The icon that one `<link>` tag declares. The address points into the page.
struct IconLink {
    std::string_view address;
    std::int64_t size;
    bool isAppleTouchIcon;
};

/// The `<link>` tags in `html`, in document order: all that the pattern matches.
///
/// Each match begins with "<lin" in some letter case and ends at the next ">". Running the engine
/// on such pieces alone is far cheaper than on the page. For the letters see `LinkPattern`.
std::vector<std::string_view> linkTags(std::string_view html) {
    std::vector<std::string_view> tags;
    const auto& pattern = linkPatterns().tag;
    std::size_t begin = pattern ? html.find('<') : std::string_view::npos;
    while (begin != std::string_view::npos) {
        std::size_t end = begin;
        if (startsWithIgnoringCase(html.substr(begin), "<lin")) {
            end = html.find('>', begin);
            if (end == std::string_view::npos) {
                break;
            }
            const auto piece = html.substr(begin, end + 1 - begin);
            if (const auto match = pattern->firstMatch(piece)) {
                tags.push_back(match->front().in(piece));
            }
        }
        begin = html.find('<', end + 1);
    }
    return tags;
}

/// Absent if the tag declares no usable icon.
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

/// Plain icons go before Apple touch icons of any size, then larger sizes before smaller ones.
bool goesBefore(const IconLink& a, const IconLink& b) {
    if (a.isAppleTouchIcon != b.isAppleTouchIcon) {
        return !a.isAppleTouchIcon;
    }
    return a.size > b.size;
}

/// Downloads all `entries`, which a page from `pageSpace` named, at the same time.
void downloadEntries(const FetchContext& context, const std::vector<IconEntry>& entries,
                     platform::AddressSpace pageSpace,
                     FaviconFetcher::CandidatesCompletion completion) {
    const CandidateCollector collector;
    for (const IconEntry& entry : entries) {
        const auto source =
            entry.isAppleTouchIcon ? IconSource::htmlAppleTouchIcon : IconSource::htmlIcon;
        FaviconFetcher::downloadImage(context, entry.url, collector.awaitImage(source), pageSpace);
    }
    collector.whenComplete(std::move(completion));
}

}  // namespace

void FaviconFetcher::fetchAllFromHTML(const FetchContext& context, const URL& url,
                                      CandidatesCompletion completion) {
    services().urlSession.startDataTask(
        browserRequest(context, url),
        [context, url, completion = std::move(completion)](platform::URLResult result) {
            // The status does not matter: error pages declare icons, too. A body that is not UTF-8
            // is not ASCII either, so no second encoding is tried.
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
            downloadEntries(context, entries, result.addressSpace, completion);
        });
}

std::vector<IconEntry> FaviconFetcher::extractIconURLs(std::string_view html, const URL& baseURL,
                                                       std::size_t limit) {
    std::vector<IconLink> links;
    for (const std::string_view tag : linkTags(html)) {
        if (const auto link = iconLink(tag)) {
            links.push_back(*link);
        }
    }
    std::ranges::stable_sort(links, goesBefore);

    // Addresses are resolved after sorting and only up to the limit: a page can have a million
    // links.
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
        // A "?" or "#" in the address becomes part of the path, and the base's port is dropped.
        // Both are intended.
        return URLComponents{base.scheme(), base.host(), std::string(address)}.url();
    }
    return URL::parse(address, base);
}

}  // namespace glintmark
