#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace glintmark {

/// A piece of the searched text, in bytes.
struct TextRange {
    std::size_t begin = 0;
    std::size_t end = 0;

    std::string_view in(std::string_view text) const { return text.substr(begin, end - begin); }
    bool operator==(const TextRange&) const = default;
};

/// A pattern over UTF-8 text, in the syntax that Perl, PCRE2 and ICU share. `\d` and `\s` mean the
/// digits and the white space of all scripts, and letter case is Unicode's. Immutable; may be used
/// from any thread.
class RegularExpression {
public:
    struct Options {
        bool caseInsensitive = false;
        bool dotMatchesLineSeparators = false;
    };

    /// Absent when the pattern cannot be compiled.
    static std::optional<RegularExpression> compile(std::string_view pattern, Options options);

    /// The first match: the whole match at index 0, then one range per capture group, which is
    /// {0, 0} for a group that took no part. Absent if there is no match, the engine gives up or
    /// the text is ill-formed.
    std::optional<std::vector<TextRange>> firstMatch(std::string_view text) const;

private:
    struct Compiled;
    explicit RegularExpression(std::shared_ptr<const Compiled> compiled);

    std::shared_ptr<const Compiled> compiled_;
};

}  // namespace glintmark
