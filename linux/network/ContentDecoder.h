#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace glintmark::platform {

/// What the client decodes, as the value of Accept-Encoding.
inline constexpr const char* acceptedCodings = "deflate, gzip, br, zstd";

/// Undoes the content codings of one body as it arrives (RFC 9110, section 8.4). libcurl does so,
/// too, but fails if the coding is unknown or the body is not in it, and servers send both.
class ContentDecoder {
public:
    enum class Outcome {
        good,
        wrong,    ///< The bytes are not in that coding.
        tooLarge  ///< The result would be longer than the maximum.
    };

    /// One coding. Appends to `result`.
    class Step {
    public:
        virtual ~Step() = default;
        virtual Outcome decode(std::string_view bytes, std::string& result,
                               std::size_t maximum) = 0;
    };

    /// `codings` is the value of Content-Encoding. Null if there is nothing to decode or one of the
    /// codings is unknown: the body then counts as it came.
    static std::unique_ptr<ContentDecoder> make(std::string_view codings);

    /// Appends what `bytes`, the next part of the body, decode to. What follows the end of a coded
    /// stream is ignored. Call no more after any other outcome than `good`.
    Outcome decode(std::string_view bytes, std::string& result, std::size_t maximum);

private:
    std::vector<std::unique_ptr<Step>> steps_;  ///< The coding that was applied last in front.
};

}  // namespace glintmark::platform
