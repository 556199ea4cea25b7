# Writes OUTPUT, a source that holds FILES (a list of name=path). It defines FUNCTION, which HEADER
# declares in NAMESPACE: the function returns a TYPE of name and bytes for each file. Run by the build
# whenever one of the files changes; see glintmark_embed.
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
file(WRITE ${OUTPUT} "#include \"${HEADER}\"

#include <array>

namespace ${NAMESPACE} {

namespace {

constexpr auto files = std::to_array<${TYPE}>({
${entries}});

}  // namespace

std::span<const ${TYPE}> ${FUNCTION}() { return files; }

}  // namespace ${NAMESPACE}
")
