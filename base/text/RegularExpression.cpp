#include "base/text/RegularExpression.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "base/system/ReleaseWith.h"

namespace glintmark {
namespace {

/// How often the engine may return to an earlier choice in one search. The budget grows with the
/// text, so that a search never fails only because its text is long.
constexpr std::size_t choicesPerByte = 20;
constexpr std::size_t minimumChoices = 100'000;
constexpr std::uint32_t maximumKibibytes = 8 * 1024;  // of memory, for one search

/// The characters with Unicode's property White_Space. The engine's own `\s` also matches U+180E,
/// which does not have this property.
constexpr std::string_view whiteSpace =
    R"(\t-\r \x{85}\x{A0}\x{1680}\x{2000}-\x{200A}\x{2028}\x{2029}\x{202F}\x{205F}\x{3000})";

using CompileContext =
    std::unique_ptr<pcre2_compile_context, ReleaseWith<pcre2_compile_context_free>>;
using MatchContext = std::unique_ptr<pcre2_match_context, ReleaseWith<pcre2_match_context_free>>;
using MatchData = std::unique_ptr<pcre2_match_data, ReleaseWith<pcre2_match_data_free>>;

/// The pattern with every `\s` and `\S` replaced by the set or its complement.
std::string withWhiteSpaceReplaced(std::string_view pattern) {
    std::string result;
    bool inBrackets = false;
    for (std::size_t i = 0; i < pattern.size();) {
        const std::string_view item = pattern.substr(i, pattern[i] == '\\' ? 2 : 1);
        i += item.size();
        if (item == R"(\s)" && inBrackets) {
            result += whiteSpace;
        } else if (item == R"(\s)" || (item == R"(\S)" && !inBrackets)) {
            result.append(item[1] == 's' ? "[" : "[^").append(whiteSpace).append("]");
        } else {
            inBrackets = item == "[" || (inBrackets && item != "]");
            result += item;
        }
    }
    return result;
}

std::uint32_t budget(std::size_t textBytes) {
    constexpr std::size_t maximum = std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(
        std::min(minimumChoices + textBytes * choicesPerByte, maximum));
}

/// The matches of one pattern in one text, one after the other.
class Search {
public:
    Search(const pcre2_code& code, std::string_view text)
        : code_(code),
          text_(text),
          data_(pcre2_match_data_create_from_pattern(&code, nullptr)),
          context_(pcre2_match_context_create(nullptr)) {
        pcre2_set_match_limit(context_.get(), budget(text.size()));
        pcre2_set_heap_limit(context_.get(), maximumKibibytes);
    }

    /// False after the last match, or if the engine gave up: then `failed()` is true.
    bool next() {
        const auto* subject = reinterpret_cast<PCRE2_SPTR>(text_.data());
        count_ = pcre2_match(&code_, subject, text_.size(), range(0).end, options_, data_.get(),
                             context_.get());
        if (count_ < 0) {
            return false;
        }
        // The first search has checked that the whole text is UTF-8. An empty match is not found
        // again.
        options_ = PCRE2_NO_UTF_CHECK;
        if (range(0).begin == range(0).end) {
            options_ |= PCRE2_NOTEMPTY_ATSTART;
        }
        return true;
    }

    bool failed() const { return count_ < 0 && count_ != PCRE2_ERROR_NOMATCH; }

    /// {0, 0} for a group that took no part, and before the first match.
    TextRange range(std::size_t group) const {
        if (count_ < 0 || group >= static_cast<std::size_t>(count_)) {
            return {};
        }
        const PCRE2_SIZE* ends = pcre2_get_ovector_pointer(data_.get()) + 2 * group;
        return ends[0] == PCRE2_UNSET ? TextRange{} : TextRange{ends[0], ends[1]};
    }

    std::size_t groups() const { return pcre2_get_ovector_count(data_.get()); }

private:
    const pcre2_code& code_;
    std::string_view text_;
    MatchData data_;
    MatchContext context_;
    std::uint32_t options_ = 0;
    int count_ = 0;
};

}  // namespace

/// Shared by all threads, which only read it.
struct RegularExpression::Compiled {
    std::unique_ptr<pcre2_code, ReleaseWith<pcre2_code_free>> code;
};

RegularExpression::RegularExpression(std::shared_ptr<const Compiled> compiled)
    : compiled_(std::move(compiled)) {}

std::optional<RegularExpression> RegularExpression::compile(std::string_view pattern,
                                                            Options options) {
    std::uint32_t flags = PCRE2_UTF | PCRE2_UCP;
    if (options.caseInsensitive) {
        flags |= PCRE2_CASELESS;
    }
    if (options.dotMatchesLineSeparators) {
        flags |= PCRE2_DOTALL;
    }
    const CompileContext context(pcre2_compile_context_create(nullptr));
    pcre2_set_newline(context.get(), PCRE2_NEWLINE_ANY);
    const std::string replaced = withWhiteSpaceReplaced(pattern);
    int error = 0;
    PCRE2_SIZE place = 0;
    auto compiled = std::make_shared<Compiled>();
    compiled->code.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(replaced.data()),
                                       replaced.size(), flags, &error, &place, context.get()));
    if (!compiled->code) {
        return std::nullopt;
    }
    return RegularExpression(std::move(compiled));
}

std::vector<TextRange> RegularExpression::matches(std::string_view text) const {
    std::vector<TextRange> found;
    Search search(*compiled_->code, text);
    while (search.next()) {
        found.push_back(search.range(0));
    }
    if (search.failed()) {
        found.clear();
    }
    return found;
}

std::optional<std::vector<TextRange>> RegularExpression::firstMatch(std::string_view text) const {
    Search search(*compiled_->code, text);
    if (!search.next()) {
        return std::nullopt;
    }
    std::vector<TextRange> groups;
    groups.reserve(search.groups());
    for (std::size_t group = 0; group < search.groups(); ++group) {
        groups.push_back(search.range(group));
    }
    return groups;
}

}  // namespace glintmark
