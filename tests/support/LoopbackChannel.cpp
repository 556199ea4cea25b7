#include "tests/support/LoopbackChannel.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace glintmark::test {

namespace {

class PlainChannel final : public LoopbackChannel {
public:
    explicit PlainChannel(int socket) : LoopbackChannel(socket) {}

    std::string read() override {
        std::array<char, 16384> buffer{};
        const ssize_t count = ::recv(socket(), buffer.data(), buffer.size(), 0);
        return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : "";
    }

    bool write(std::string_view bytes) override {
        while (!bytes.empty()) {
            const ssize_t count = ::send(socket(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (count <= 0) {
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    void close() override { ::shutdown(socket(), SHUT_WR); }
};

}  // namespace

std::unique_ptr<LoopbackChannel> plainChannel(int socket) {
    return std::make_unique<PlainChannel>(socket);
}

}  // namespace glintmark::test
