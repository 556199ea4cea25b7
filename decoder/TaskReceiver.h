#pragma once

#include <cstdint>

#include "decoder/DecoderChild.h"

namespace glintmark::decoder {

enum class Received : std::uint8_t {
    task,
    nothing,  ///< Nothing that can be used.
    end,      ///< The other end is gone.
};

/// Takes the next task that was sent over `socket` into `task`. `flags` are those of recvmsg(2).
Received receiveTask(int socket, DecodeTask& task, int flags = 0);

}  // namespace glintmark::decoder
