#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace glintmark {

/// Opens the null device as standard input, output and error where these are closed (`2>&-` in a
/// shell). Else the next file, socket or event counter of the program gets that number, and what is
/// written to standard error goes into it. Call first in `main`.
inline void openStandardDescriptors() {
    int opened = 0;
    do {
        opened =
            ::open("/dev/null", O_RDWR);  // the lowest number that is free; children inherit it
    } while (opened >= 0 && opened <= STDERR_FILENO);
    if (opened >= 0) {
        ::close(opened);
    }
}

}  // namespace glintmark
