// glintmark-thumbnailer INPUT OUTPUT SIZE
//
// Thumbnail services run this program for a link file. It writes the file's icon. Exit status: 1 if
// Glintmark set no icon, so that the service caches nothing; 2 for wrong use.

#include <glib.h>

#include <charconv>
#include <cstdio>
#include <string_view>

#include "base/system/StandardDescriptors.h"
#include "linux/workspace/IconStore.h"
#include "linux/workspace/IconThumbnail.h"

namespace {

/// Zero when `text` is not a number.
int edgeFrom(std::string_view text) {
    int edge = 0;
    const auto end = text.data() + text.size();
    return std::from_chars(text.data(), end, edge).ptr == end ? edge : 0;
}

}  // namespace

int main(int argc, char** argv) {
    glintmark::openStandardDescriptors();
    constexpr int expectedArguments = 4;
    if (argc != expectedArguments) {
        std::fprintf(stderr, "Usage: glintmark-thumbnailer INPUT OUTPUT SIZE\n");
        return 2;
    }
    const glintmark::platform::IconStore store(g_get_user_data_dir());
    return glintmark::platform::writeIconThumbnail(store, argv[1], argv[2], edgeFrom(argv[3])) ? 0
                                                                                               : 1;
}
