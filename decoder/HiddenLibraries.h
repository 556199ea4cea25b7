#pragma once

namespace glintmark::decoder {

/// Keeps libraries that no decoder calls out of the processes that are forked from now on, with
/// MADV_DONTFORK (madvise(2)): those with which libavif writes files or could read them instead of
/// dav1d, and libseccomp. A child then has about half of the helper's mappings, which
/// is what makes it expensive to fork and to end, and less code that a broken image could misuse.
void hideUnusedLibraries();

}  // namespace glintmark::decoder
