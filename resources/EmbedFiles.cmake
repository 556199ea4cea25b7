# Writes OUTPUT, the source that defines EmbeddedFiles.h with FILES (a list of name=path). The build
# runs this script whenever one of the files changes.
set(entries "")
foreach(entry IN LISTS FILES)
  string(REGEX MATCH "^([^=]*)=(.*)$" matched "${entry}")
  set(name "${CMAKE_MATCH_1}")
  file(READ "${CMAKE_MATCH_2}" hex HEX)
  string(REGEX REPLACE "(..)" "\\\\x\\1" bytes "${hex}")
  string(LENGTH "${hex}" length)
  math(EXPR length "${length} / 2")
  string(APPEND entries "    {\"${name}\", {\"${bytes}\", ${length}}},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"resources/EmbeddedFiles.h\"

#include <array>

namespace glintmark::resources {

namespace {

constexpr auto files = std::to_array<EmbeddedFile>({
${entries}});

}  // namespace

std::span<const EmbeddedFile> embeddedFiles() { return files; }

}  // namespace glintmark::resources
")
