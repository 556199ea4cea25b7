#pragma once

#include <cstdint>

#include "decoder/DecoderChild.h"

namespace glintmark::decoder {

enum class Received : std::uint8_t {
    task,
    nothing,  ///< No message, or a malformed one.
    end,      ///< The other end is closed.
};

/// Receives the next task from `socket` into `task`. `flags` are those of recvmsg(2).
Received receiveTask(int socket, DecodeTask& task, int flags = 0);

}  // namespace glintmark::decoder
