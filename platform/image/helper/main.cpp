#include "platform/image/DecoderServer.h"

int main() { return glintmark::platform::image::runDecoder({}); }
