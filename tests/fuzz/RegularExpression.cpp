#include "base/text/RegularExpression.h"

#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

/// Rule: whatever the bytes, matches lie within them, in order, without overlap.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto expression =
        RegularExpression::compile(R"(<a\s+([^>]*)>)", {.caseInsensitive = true}).value();
    const auto text = fuzz::text(data, size);
    std::size_t end = 0;
    for (const auto& match : expression.matches(text)) {
        fuzz::require(match.begin >= end && match.end > match.begin && match.end <= text.size());
        fuzz::require(match.in(text).front() == '<' && match.in(text).back() == '>');
        end = match.end;
    }
    const auto first = expression.firstMatch(text);
    fuzz::require(first.has_value() == (end > 0));
    return 0;
}
