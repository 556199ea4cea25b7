// An image decoder that an attacker controls: the image names what it does. Process, sandbox and
// protocol are those of the real one. If its file is called "broken-gif", its sandbox refuses a
// call that reading a GIF needs.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
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

using Status = DecodeAnswer::Status;

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
    if (write(childChannel, &lie, sizeof lie) < 0) {
        _exit(1);
    }
}

void answerHalf() {
    if (write(childChannel, "abc", 3) < 0) {
        _exit(1);
    }
}

void makeExecutableMemory() {
    mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

void raiseLimit() {
    const rlimit most{RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &most);
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
         if (write(childExchange, "x", 1) < 0) {
             _exit(1);
         }
     }},
    {"close", [] { close(childChannel); }},
    {"executable memory", makeExecutableMemory},
    {"raise limit", raiseLimit},
    {"long file",
     [] {
         if (ftruncate(childExchange, off_t{1} << 40U) != 0) {
             _exit(1);
         }
     }},
    {"crash", [] { std::raise(SIGSEGV); }},
    {"fault",
     [] {
         volatile int* nothing = nullptr;
         *nothing = 1;  // NOLINT(clang-analyzer-core.NullDereference)
     }},
    {"end", [] { _exit(0); }},
    {"spin", spinForEver},
    {"eat memory", eatMemory},
    {"answer half", answerHalf},
    {"answer twice",
     [] {
         answer({Status::decoded, 1, 1, 1, 0, {}});
     }},
    {"answer for ever",
     [] {
         for (;;) {
             answer({Status::decoded, -1, 1, 1, 0, {}});
         }
     }},
    {"ask for ever",
     [] {
         for (;;) {
             answer({Status::asksForRoom, 0, 0, 0, 0, {}});
         }
     }},
    {"warn", [] { std::fputs("warning\n", stderr); }},
};

// Forged answers. The decoder exits after each.
const std::map<std::string, DecodeAnswer> lies = {
    {"negative width", {Status::decoded, -1, -1, 1, 0, {}}},
    {"too wide", {Status::decoded, 65536, 1, 1, 0, {}}},
    {"too many pixels", {Status::decoded, 10000, 5001, 1, 0, {}}},
    {"odd boolean", {Status::decoded, 1, 1, 7, 0, {}}},
    {"unknown status", {static_cast<Status>(9), 1, 1, 1, 0, {}}},
    {"always too large", {Status::lacksRoom, 0, 0, 0, 0, {}}},
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

std::optional<DecodedImage> callForGIF(std::span<const std::uint8_t> encoded, PixelStore& pixels) {
    if (formatOf(encoded) == decodeGIF) {
        kill(getpid(), 0);
    }
    return decodeImage(encoded, pixels);
}

bool isCalled(const std::string& name) {
    std::array<char, 4096> path{};
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size());
    return length > 0 && std::string(path.data(), static_cast<std::size_t>(length)).ends_with(name);
}

}  // namespace
}  // namespace glintmark::decoder

int main() {
    namespace decoder = glintmark::decoder;
    return decoder::runDecoder(
        {.decode = decoder::isCalled("broken-gif") ? decoder::callForGIF : decoder::misbehave,
         .cpuSeconds = 1});
}
