#include "base/text/RegularExpression.h"

#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;

/// Rule: whatever the bytes, matches lie within them, and the group within the match.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto expression =
        RegularExpression::compile(R"(<a\s+([^>]*)>)", {.caseInsensitive = true}).value();
    const auto text = fuzz::text(data, size);
    if (const auto match = expression.firstMatch(text)) {
        const TextRange whole = match->at(0);
        const TextRange group = match->at(1);
        fuzz::require(whole.end > whole.begin && whole.end <= text.size());
        fuzz::require(whole.in(text).front() == '<' && whole.in(text).back() == '>');
        fuzz::require(group.begin > whole.begin && group.end + 1 == whole.end);
    }
    return 0;
}
