#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace glintmark {

/// Appends `character`, a code point of Unicode other than a surrogate.
void appendUTF8(std::string& text, char32_t character);

/// True if `bytes` are well-formed UTF-8 (RFC 3629).
bool isUTF8(std::string_view bytes);

/// A byte-order mark at the start of a text.
struct ByteOrderMark {
    const char* encoding;  ///< A name for `decodedText`.
    std::size_t bytes;     ///< The mark's length.
};

/// The mark of UTF-8, UTF-16 or UTF-32 at the start of `bytes`. Absent if there is none.
std::optional<ByteOrderMark> byteOrderMark(std::string_view bytes);

/// `bytes` decoded from `encoding`, as UTF-8. `encoding` is a name in the registry of character
/// sets, in any case; UTF-16 and UTF-32 need "LE" or "BE". Absent if `bytes` are ill-formed in the
/// encoding, or if it is none of these: UTF-8, UTF-16, UTF-32, US-ASCII, ISO-8859-1 to -15,
/// windows-1250 to -1258, Shift_JIS, EUC-JP, EUC-KR, GB18030, Big5. Each further encoding would let
/// a file choose one more of the C library's converters, which have had security holes.
std::optional<std::string> decodedText(std::string_view bytes, const std::string& encoding);

/// Decodes like `decodedText`, but in pieces: calls `take` with one piece of UTF-8 after the other,
/// each of whole characters. False where `decodedText` is absent; `take` may have been called
/// before.
bool decodeInPieces(std::string_view bytes, const std::string& encoding,
                    const std::function<void(std::string_view piece)>& take);

}  // namespace glintmark
