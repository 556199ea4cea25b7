// An image decoder that accepts no request and ends when the program closes the socket.

#include <poll.h>
#include <unistd.h>

#include "decoder/DecoderProtocol.h"

int main() {
    if (fork() != 0) {
        _exit(0);
    }
    pollfd socket{glintmark::decoder::decoderSocket, 0, 0};
    while (poll(&socket, 1, -1) <= 0) {
    }
    return 0;
}
