#pragma once

#include <span>
#include <string_view>

namespace glintmark::resources {

/// A file that the build embeds in the program.
struct EmbeddedFile {
    std::string_view name;  ///< Its path below resources/, such as "de.lproj/Localizable.strings".
    std::string_view bytes;
};

/// The information dictionary and the string tables.
std::span<const EmbeddedFile> embeddedFiles();

}  // namespace glintmark::resources
