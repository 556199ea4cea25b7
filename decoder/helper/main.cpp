#include <sys/prctl.h>

#include "decoder/DecoderServer.h"

int main() {
    prctl(PR_SET_NAME, "glintmark-image");  // else NUMBER, if run by /proc/PID/fd/NUMBER
    return glintmark::decoder::runDecoder();
}
