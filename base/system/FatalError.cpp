#include "base/system/FatalError.h"

#include <cstdio>
#include <cstdlib>

namespace glintmark {

void fatalError(std::string_view message) {
    std::fputs("Fatal error: ", stderr);
    std::fwrite(message.data(), 1, message.size(), stderr);
    std::fputc('\n', stderr);
    std::abort();
}

}  // namespace glintmark
