#include <sys/prctl.h>

#include "decoder/DecoderServer.h"

int main() {
    prctl(PR_SET_NAME, "glintmark-image");  // otherwise a number, if started by /proc/PID/fd/NUMBER
    return glintmark::decoder::runDecoder({});
}
