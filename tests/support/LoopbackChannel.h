#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace glintmark::test {

/// The bytes of one accepted connection, encrypted or not. Does not own the socket.
class LoopbackChannel {
public:
    virtual ~LoopbackChannel() = default;

    virtual std::string read() = 0;  ///< What there is, waiting for it; empty at the end.
    virtual bool write(std::string_view bytes) = 0;  ///< All of it; false once the client has gone.
    virtual void close() = 0;                        ///< Tells the client that no more will come.
    virtual std::string protocol() const { return {}; }  ///< Agreed on by ALPN.

    int socket() const { return socket_; }

protected:
    explicit LoopbackChannel(int socket) : socket_(socket) {}

private:
    int socket_;
};

std::unique_ptr<LoopbackChannel> plainChannel(int socket);

/// The server's side of TLS with a fresh key and a certificate signed by itself.
class LoopbackTLS {
public:
    LoopbackTLS(const std::string& address, const std::vector<std::string>& protocols);
    ~LoopbackTLS();
    LoopbackTLS(const LoopbackTLS&) = delete;
    LoopbackTLS& operator=(const LoopbackTLS&) = delete;

    /// Shakes hands; null when the client breaks it off.
    std::unique_ptr<LoopbackChannel> accept(int socket);

    const std::string& certificateFile() const { return certificateFile_; }

private:
    struct State;

    std::unique_ptr<State> state_;
    std::string certificateFile_;
};

}  // namespace glintmark::test
