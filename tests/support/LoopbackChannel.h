#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace glintmark::test {

/// The bytes of one accepted connection, encrypted or not. Does not own the socket.
class LoopbackChannel {
public:
    virtual ~LoopbackChannel() = default;

    virtual std::string read() = 0;                   ///< Waits for bytes; empty at the end.
    virtual bool write(std::string_view bytes) = 0;   ///< All of it; false if the client has gone.
    virtual void close() = 0;                         ///< Tells the client that no bytes follow.
    virtual bool isResumed() const { return false; }  ///< A TLS ticket saved the handshake.
    virtual std::string protocol() const { return {}; }  ///< Agreed on by ALPN.

    int socket() const { return socket_; }

protected:
    explicit LoopbackChannel(int socket) : socket_(socket) {}

private:
    int socket_;
};

std::unique_ptr<LoopbackChannel> plainChannel(int socket);

}  // namespace glintmark::test
