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

MatchContext limitedContext(std::size_t textBytes) {
    MatchContext context(pcre2_match_context_create(nullptr));
    pcre2_set_match_limit(context.get(), budget(textBytes));
    pcre2_set_heap_limit(context.get(), maximumKibibytes);
    return context;
}

/// {0, 0} for a group that took no part.
TextRange rangeOf(pcre2_match_data* match, std::size_t group) {
    const PCRE2_SIZE* const ends = pcre2_get_ovector_pointer(match) + 2 * group;
    return ends[0] == PCRE2_UNSET ? TextRange{} : TextRange{ends[0], ends[1]};
}

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

std::optional<std::vector<TextRange>> RegularExpression::firstMatch(std::string_view text) const {
    const auto* code = compiled_->code.get();
    const MatchData match(pcre2_match_data_create_from_pattern(code, nullptr));
    const auto* subject = reinterpret_cast<PCRE2_SPTR>(text.data());
    if (pcre2_match(code, subject, text.size(), 0, 0, match.get(),
                    limitedContext(text.size()).get()) < 0) {
        return std::nullopt;
    }
    std::vector<TextRange> groups(pcre2_get_ovector_count(match.get()));
    for (std::size_t group = 0; group < groups.size(); ++group) {
        groups[group] = rangeOf(match.get(), group);
    }
    return groups;
}

}  // namespace glintmark
