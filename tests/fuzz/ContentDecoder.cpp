#include "linux/network/ContentDecoder.h"

#include <algorithm>
#include <array>
#include <string>

#include "tests/fuzz/FuzzTarget.h"

using namespace glintmark;
using platform::ContentDecoder;

namespace {

constexpr std::size_t maximum = std::size_t{1} << 20;
constexpr std::array codings{"gzip", "deflate", "br", "zstd", "gzip, br"};

/// Decodes parts of `partBytes` bytes.
ContentDecoder::Outcome decode(const char* coding, std::string_view body, std::size_t partBytes,
                               std::string& result) {
    const auto decoder = ContentDecoder::make(coding);
    auto outcome = ContentDecoder::Outcome::good;
    while (!body.empty() && outcome == ContentDecoder::Outcome::good) {
        outcome = decoder->decode(body.substr(0, partBytes), result, maximum);
        body.remove_prefix(std::min(partBytes, body.size()));
    }
    fuzz::require(result.size() <= maximum);
    return outcome;
}

}  // namespace

/// Rule: a body decodes to the same, whatever the parts in which it arrives, and never to more than
/// the maximum. The first byte chooses the coding.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const char* const coding = codings.at(data[0] % codings.size());
    const std::string_view body = fuzz::text(data + 1, size - 1);
    std::string whole;
    std::string inParts;
    const auto outcome = decode(coding, body, body.size(), whole);
    const auto outcomeInParts = decode(coding, body, 3, inParts);
    fuzz::require(outcome == outcomeInParts);
    fuzz::require(outcome != ContentDecoder::Outcome::good || whole == inParts);
    ContentDecoder::make(body);
    return 0;
}
