#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "resources/EmbeddedFiles.h"

namespace glintmark::link {

/// The companion program's string tables. It has its own, so that the resident program does not
/// hold their texts.
std::span<const resources::EmbeddedFile> embeddedTexts();

/// The text for `key` in the user's language, with "%1", "%2" and so on replaced by `values`.
/// Any thread.
std::string text(const std::string& key, std::initializer_list<std::string_view> values = {});

/// `text` as a terminal may show it, on one line: control characters of ASCII and Unicode and marks
/// that change the direction of writing are shown as "?", bytes that are not UTF-8 too.
std::string printable(std::string_view text);

/// Writes "glintmark-link: MESSAGE" and a line break to standard error.
void complain(std::string_view message);

}  // namespace glintmark::link
