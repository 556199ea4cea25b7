#include "platform/RegularExpression.h"

#include <unicode/uregex.h>
#include <unicode/utext.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

namespace glintmark::platform {
namespace {

/// What the engine may spend on one text, in its own units: each is 10,000 states saved to come
/// back to. So the budget is 20 states for a byte, more than any pattern of linear growth saves,
/// and giving up is a matter of the pattern's growth and not of the text's length.
constexpr std::size_t unitsPerMebibyte = 2'000;
constexpr std::size_t smallestBudget = 100;

/// A matcher that has seen a longer text is not kept: its stack may have grown to megabytes.
constexpr std::size_t longestTextOfKeptMatcher = std::size_t{64} * 1024;

struct MatcherCloser {
    void operator()(URegularExpression* matcher) const { uregex_close(matcher); }
};
using Matcher = std::unique_ptr<URegularExpression, MatcherCloser>;

/// Text for the engine, in place: it is read as UTF-8 where it lies, ill-formed bytes as U+FFFD,
/// and positions are those of its bytes.
class Text {
public:
    explicit Text(std::string_view text) {
        UErrorCode status = U_ZERO_ERROR;
        // A null pointer would count as no text at all.
        utext_openUTF8(&text_, text.empty() ? "" : text.data(),
                       static_cast<std::int64_t>(text.size()), &status);
    }
    ~Text() { utext_close(&text_); }

    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;

    UText* get() { return &text_; }

private:
    UText text_ = UTEXT_INITIALIZER;
};

/// The pattern with "[\\s]" for every "\\s" outside brackets, and the like, which means the same.
/// But a bracketed set the engine repeats in place, while of a bare one it remembers each
/// repetition and so gives up on a run of some 300,000 blanks.
std::string withBracketedSets(std::string_view pattern) {
    constexpr std::string_view setLetters = "sSdDwW";
    std::string result;
    int depth = 0;
    for (std::size_t i = 0; i < pattern.size();) {
        const std::string_view item = pattern.substr(i, pattern[i] == '\\' ? 2 : 1);
        i += item.size();
        if (depth == 0 && item.size() == 2 && setLetters.find(item[1]) != std::string_view::npos) {
            result.append("[").append(item).append("]");
            continue;
        }
        result += item;
        if (item == "[") {
            ++depth;
        } else if (item == "]" && depth > 0) {
            --depth;
        }
    }
    return result;
}

Matcher openMatcher(std::string_view pattern, RegularExpression::Options options) {
    std::uint32_t flags = 0;
    if (options.caseInsensitive) {
        flags |= UREGEX_CASE_INSENSITIVE;
    }
    if (options.dotMatchesLineSeparators) {
        flags |= UREGEX_DOTALL;
    }
    const std::string bracketed = withBracketedSets(pattern);
    Text text(bracketed);
    UErrorCode status = U_ZERO_ERROR;
    Matcher matcher(uregex_openUText(text.get(), flags, nullptr, &status));
    return U_SUCCESS(status) ? std::move(matcher) : nullptr;
}

std::int32_t budget(std::size_t textBytes) {
    const auto units = smallestBudget + textBytes / 1024 * unitsPerMebibyte / 1024;
    constexpr std::size_t most = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::min(units, most));
}

TextRange group(URegularExpression& matcher, std::int32_t number, UErrorCode& status) {
    const auto begin = uregex_start64(&matcher, number, &status);
    const auto end = uregex_end64(&matcher, number, &status);
    if (begin < 0 || end < begin) {
        return {};  // a group that took no part
    }
    return {static_cast<std::size_t>(begin), static_cast<std::size_t>(end)};
}

}  // namespace

/// The engine's matchers share the compiled pattern; one is kept at hand, since a search in a short
/// text costs less than making a matcher.
struct RegularExpression::Compiled {
    explicit Compiled(Matcher matcher) : prototype(std::move(matcher)) {}
    ~Compiled() { const Matcher last(spare.load()); }

    Compiled(const Compiled&) = delete;
    Compiled& operator=(const Compiled&) = delete;

    Matcher take(UErrorCode& status) const {
        Matcher matcher(spare.exchange(nullptr));
        return matcher ? std::move(matcher) : Matcher(uregex_clone(prototype.get(), &status));
    }

    void giveBack(Matcher matcher) const {
        const Matcher surplus(spare.exchange(matcher.release()));
    }

    const Matcher prototype;  ///< Only ever cloned, which any thread may do.
    mutable std::atomic<URegularExpression*> spare = nullptr;
};

namespace {

/// Runs `search` with a matcher set to `text`. False when the engine gave up.
template <typename Compiled, typename Search>
bool withMatcher(const Compiled& compiled, std::string_view text, Search search) {
    UErrorCode status = U_ZERO_ERROR;
    auto matcher = compiled.take(status);
    if (U_FAILURE(status)) {
        return false;
    }
    Text engineText(text);
    uregex_setUText(matcher.get(), engineText.get(), &status);
    uregex_setTimeLimit(matcher.get(), budget(text.size()), &status);
    search(*matcher, status);
    const bool succeeded = U_SUCCESS(status);
    if (text.size() <= longestTextOfKeptMatcher) {
        compiled.giveBack(std::move(matcher));
    }
    return succeeded;
}

}  // namespace

RegularExpression::RegularExpression(std::shared_ptr<const Compiled> compiled)
    : compiled_(std::move(compiled)) {}

std::optional<RegularExpression> RegularExpression::compile(std::string_view pattern,
                                                            Options options) {
    auto matcher = openMatcher(pattern, options);
    if (!matcher) {
        return std::nullopt;
    }
    return RegularExpression(std::make_shared<const Compiled>(std::move(matcher)));
}

std::vector<TextRange> RegularExpression::matches(std::string_view text) const {
    std::vector<TextRange> found;
    const auto collect = [&found](URegularExpression& matcher, UErrorCode& status) {
        while (uregex_findNext(&matcher, &status) && U_SUCCESS(status)) {
            found.push_back(group(matcher, 0, status));
        }
    };
    if (!withMatcher(*compiled_, text, collect)) {
        found.clear();
    }
    return found;
}

std::optional<std::vector<TextRange>> RegularExpression::firstMatch(std::string_view text) const {
    std::vector<TextRange> groups;
    const auto collect = [&groups](URegularExpression& matcher, UErrorCode& status) {
        if (!uregex_findNext(&matcher, &status) || U_FAILURE(status)) {
            return;
        }
        const auto count = uregex_groupCount(&matcher, &status);
        groups.reserve(static_cast<std::size_t>(count) + 1);
        for (std::int32_t number = 0; number <= count; ++number) {
            groups.push_back(group(matcher, number, status));
        }
    };
    if (!withMatcher(*compiled_, text, collect) || groups.empty()) {
        return std::nullopt;
    }
    return groups;
}

}  // namespace glintmark::platform
