#include <algorithm>
#include <utility>

#include "favicon/CandidateList.h"
#include "favicon/FaviconFetcher.h"
#include "favicon/IconAddress.h"
#include "platform/DispatchGroup.h"
#include "platform/DispatchQueue.h"
#include "platform/Platform.h"
#include "platform/RegularExpression.h"
#include "platform/TextEncoding.h"
#include "platform/URLComponents.h"

namespace glintmark {

using platform::Image;
using platform::RegularExpression;
using platform::services;
using platform::URL;

namespace {

constexpr std::size_t maximumDownloads = 6;  // Of one page.

constexpr std::int64_t defaultAppleTouchIconSize = 180;  // Pixels.
constexpr std::int64_t defaultIconSize = 32;             // Pixels.

/// What recognises icon links in markup. Each pattern is compiled once and serves every page.
struct LinkPatterns {
    using Pattern = std::optional<RegularExpression>;

    Pattern tag = RegularExpression::compile(
        R"(<link\s+[^>]*>)", {.caseInsensitive = true, .dotMatchesLineSeparators = true});
    // Without a closing quote, so that values which only begin with the word count too.
    Pattern appleTouchIcon = caseInsensitive(R"(rel\s*=\s*["']apple-touch-icon)");
    Pattern icon = caseInsensitive(R"(rel\s*=\s*["'](?:shortcut\s+)?icon["'])");
    Pattern href = caseInsensitive(R"(href\s*=\s*["']([^"']+)["'])");
    Pattern sizes = caseInsensitive(R"(sizes\s*=\s*["']([\d]+)x[\d]+["'])");

private:
    static Pattern caseInsensitive(std::string_view pattern) {
        return RegularExpression::compile(pattern, {.caseInsensitive = true});
    }
};

const LinkPatterns& linkPatterns() {
    static const LinkPatterns patterns;
    return patterns;
}

bool isFound(const LinkPatterns::Pattern& pattern, std::string_view text) {
    return pattern && pattern->firstMatch(text);
}

/// What the pattern's first capture group holds in its first match; absent without a match.
std::optional<std::string_view> firstCapture(const LinkPatterns::Pattern& pattern,
                                             std::string_view text) {
    const auto match = pattern ? pattern->firstMatch(text) : std::nullopt;
    if (!match) {
        return std::nullopt;
    }
    return match->at(1).in(text);
}

/// The icon that one `<link>` tag declares; absent when it declares none that can be used.
std::optional<IconEntry> iconEntry(std::string_view tag, const URL& baseURL) {
    const LinkPatterns& patterns = linkPatterns();
    const bool isAppleTouchIcon = isFound(patterns.appleTouchIcon, tag);
    if (!isAppleTouchIcon && !isFound(patterns.icon, tag)) {
        return std::nullopt;
    }
    const auto address = firstCapture(patterns.href, tag);
    if (!address || endsWithSVG(*address)) {
        return std::nullopt;
    }
    auto url = FaviconFetcher::resolveURL(*address, baseURL);
    if (!url) {
        return std::nullopt;
    }
    std::int64_t size = isAppleTouchIcon ? defaultAppleTouchIconSize : defaultIconSize;
    if (const auto width = firstCapture(patterns.sizes, tag)) {
        size = decimalInteger(*width).value_or(size);
    }
    return IconEntry{std::move(*url), size, isAppleTouchIcon};
}

/// Plain icons go first, however large an Apple touch icon is; then larger sizes.
bool goesBefore(const IconEntry& a, const IconEntry& b) {
    if (a.isAppleTouchIcon != b.isAppleTouchIcon) {
        return !a.isAppleTouchIcon;
    }
    return a.size > b.size;
}

/// Leaves the first `limit` entries of the final order. Entries that tie keep their order.
void sortAndCut(std::vector<IconEntry>& entries, std::size_t limit) {
    std::ranges::stable_sort(entries, goesBefore);
    if (entries.size() > limit) {
        entries.erase(entries.begin() + static_cast<std::ptrdiff_t>(limit), entries.end());
    }
}

/// Downloads all `entries` at once.
void downloadEntries(const std::vector<IconEntry>& entries,
                     FaviconFetcher::CandidatesCompletion completion) {
    const platform::DispatchGroup group;
    const auto found = std::make_shared<CandidateList>();
    for (const IconEntry& entry : entries) {
        const auto source =
            entry.isAppleTouchIcon ? IconSource::htmlAppleTouchIcon : IconSource::htmlIcon;
        group.enter();
        FaviconFetcher::downloadImage(
            entry.url, [group, found, source](std::shared_ptr<const Image> image) {
                if (image) {
                    found->addCandidate(IconCandidate(std::move(image), source));
                }
                group.leave();
            });
    }
    group.notify(services().dispatchQueues.global(platform::QualityOfService::userInitiated),
                 [found, completion = std::move(completion)] { completion(found->take()); });
}

}  // namespace

void FaviconFetcher::fetchAllFromHTML(const URL& url, CandidatesCompletion completion) {
    services().urlSession.startDataTask(
        browserRequest(url), [url, completion = std::move(completion)](platform::URLResult result) {
            // Any body is scanned, whatever the status: error pages declare icons too. A body that
            // is no UTF-8 would be read as ASCII next, but whatever is ASCII is UTF-8 already.
            if (!result.body || !platform::isUTF8(*result.body)) {
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
    const LinkPatterns::Pattern& tagPattern = linkPatterns().tag;
    if (!tagPattern) {
        return {};
    }
    // Every match ends at a ">". Behind the last one each "<link " would be tried in vain up to the
    // end of the text, which takes quadratic time.
    html = html.substr(0, html.rfind('>') + 1);

    std::vector<IconEntry> entries;
    for (const platform::TextRange range : tagPattern->matches(html)) {
        if (auto entry = iconEntry(range.in(html), baseURL)) {
            entries.push_back(std::move(*entry));
        }
        if (entries.size() / 2 >= limit) {
            sortAndCut(entries, limit);
        }
    }
    sortAndCut(entries, limit);
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
        return platform::URLComponents{base.scheme(), base.host(), std::string(address)}.url();
    }
    return URL::parse(address, base);
}

}  // namespace glintmark
