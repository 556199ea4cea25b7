#include <sys/prctl.h>

#include "decoder/DecoderServer.h"

int main() {
    prctl(PR_SET_NAME, "glintmark-image");  // it may have been executed by its descriptor's number
    return glintmark::decoder::runDecoder({});
}
