// An image decoder that an attacker controls: the image names what it does. Process, sandbox and
// protocol are those of the real one.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>

#include "decoder/DecoderServer.h"

namespace glintmark::decoder {
namespace {

std::string text(std::span<const std::uint8_t> bytes) { return {bytes.begin(), bytes.end()}; }

void spinForEver() {
    for (volatile bool forEver = true; forEver;) {
    }
}

void eatMemory() {
    for (std::size_t eaten = 0; eaten < (std::size_t{1} << 30U); eaten += 1U << 20U) {
        void* block = std::malloc(1U << 20U);
        if (block == nullptr) {
            std::abort();
        }
        std::memset(block, 1, 1U << 20U);
    }
}

void runShell() {
    std::array<char, 8> shell = {"/bin/sh"};
    std::array<char*, 2> arguments = {shell.data(), nullptr};
    execve(shell.data(), arguments.data(), arguments.data() + 1);
}

void answer(const DecodeAnswer& lie) {
    if (write(childAnswer, &lie, sizeof lie) < 0) {
        _exit(1);
    }
}

void answerHalf() {
    if (write(childAnswer, "abc", 3) < 0) {
        _exit(1);
    }
}

void makeExecutableMemory() {
    mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

void writeLongFile() {
    if (ftruncate(childPixels, off_t{1} << 40U) != 0) {
        _exit(1);
    }
}

// If a misdeed returns, the decoder continues and decodes one pixel.
const std::map<std::string, std::function<void()>> misdeeds = {
    {"open", [] { open("/etc/passwd", O_RDONLY | O_CLOEXEC); }},
    {"create", [] { open("/tmp/glintmark-escaped", O_WRONLY | O_CREAT | O_CLOEXEC, 0600); }},
    {"socket", [] { socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0); }},
    {"execve", runShell},
    {"fork",
     [] {
         if (fork() == 0) {
             _exit(0);
         }
     }},
    {"kill", [] { kill(1, 0); }},
    {"write elsewhere",
     [] {
         if (write(childPixels, "x", 1) < 0) {
             _exit(1);
         }
     }},
    {"executable memory", makeExecutableMemory},
    {"long file", writeLongFile},
    {"crash", [] { std::abort(); }},
    {"end", [] { _exit(0); }},
    {"spin", spinForEver},
    {"eat memory", eatMemory},
    {"answer half", answerHalf},
    {"answer twice",
     [] {
         answer({DecodeAnswer::Status::decoded, 1, 1, 1});
     }},
    {"answer for ever",
     [] {
         for (;;) {
             answer({DecodeAnswer::Status::decoded, 1, 1, 1});
         }
     }},
    {"close and stay",
     [] {
         close(childAnswer);
         spinForEver();
     }},
    {"warn", [] { std::fputs("warning\n", stderr); }},
};

// Forged answers. The decoder exits after each.
const std::map<std::string, DecodeAnswer> lies = {
    {"more pixels than there are", {DecodeAnswer::Status::decoded, 9, 9, 1}},
    {"negative width", {DecodeAnswer::Status::decoded, -1, -1, 1}},
    {"too wide", {DecodeAnswer::Status::decoded, 16385, 1, 1}},
    {"odd boolean", {DecodeAnswer::Status::decoded, 1, 1, 7}},
    {"unknown status", {static_cast<DecodeAnswer::Status>(9), 1, 1, 1}},
    {"always too large", {DecodeAnswer::Status::needsLargeSlot, 0, 0, 0}},
};

std::optional<DecodedImage> decodeOnePixel(PixelStore& pixels) {
    const auto canvas = pixels.allocate(1, 1);
    if (!canvas) {
        return std::nullopt;
    }
    std::memset(canvas->row(0), 255, 4);
    return DecodedImage{1, 1, false};
}

std::optional<DecodedImage> misbehave(std::span<const std::uint8_t> encoded, PixelStore& pixels) {
    const std::string wanted = text(encoded);
    if (const auto lie = lies.find(wanted); lie != lies.end()) {
        decodeOnePixel(pixels);
        answer(lie->second);
        _exit(0);
    }
    const auto misdeed = misdeeds.find(wanted);
    if (misdeed == misdeeds.end()) {
        return decodeImage(encoded, pixels);
    }
    misdeed->second();
    return decodeOnePixel(pixels);
}

}  // namespace
}  // namespace glintmark::decoder

int main() {
    using namespace std::chrono_literals;
    namespace decoder = glintmark::decoder;
    return decoder::runDecoder(
        {.decode = decoder::misbehave, .decodeTimeout = 2s, .idleTimeout = 300ms});
}
