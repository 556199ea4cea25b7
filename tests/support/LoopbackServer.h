#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace glintmark::test {

class LoopbackChannel;
class LoopbackTLS;

/// The head of a request, as received.
struct LoopbackRequest {
    std::string method;
    std::string target;  ///< As in the request line.
    std::string version;
    std::vector<std::pair<std::string, std::string>> headers;  ///< In order, names as sent.
    int connection = 0;                                        ///< Counted from 0.

    /// The first field of that name, in any letter case.
    std::optional<std::string> header(std::string_view name) const;
};

/// One accepted connection, given to a handler. The handler runs on the connection's own thread.
class LoopbackConnection {
public:
    explicit LoopbackConnection(std::unique_ptr<LoopbackChannel> channel);
    ~LoopbackConnection();
    LoopbackConnection(const LoopbackConnection&) = delete;
    LoopbackConnection& operator=(const LoopbackConnection&) = delete;

    /// Writes the bytes unchanged. False if the client has gone.
    bool send(std::string_view bytes);

    /// Sends a whole answer with its Content-Length.
    bool answer(int status, std::string_view body,
                const std::vector<std::pair<std::string, std::string>>& headers = {});

    /// Sends one part of a chunked body. An empty part ends the body.
    bool sendChunk(std::string_view bytes);

    /// Receives bytes up to and including the first blank line. Empty if the client has gone.
    std::string receiveHead();

    /// Receives exactly `count` bytes, or fewer if the client has gone.
    std::string receive(std::size_t count);

    /// Sends nothing until the client closes the connection or the server ends.
    void holdUntilClosed();

    void reset();  ///< Ends the connection with a TCP reset after the handler has returned.
    void close();  ///< Ends the connection properly.
    bool isOpen() const { return open_; }

    bool isResumed() const;                  ///< By a TLS ticket.
    std::string negotiatedProtocol() const;  ///< By ALPN. Empty without ALPN.

private:
    bool receiveMore();

    std::unique_ptr<LoopbackChannel> channel_;
    std::string unread_;
    bool open_ = true;
};

/// An HTTP server for tests on 127.0.0.1 that sends exactly what its handlers say, even against the
/// rules of HTTP. A request for a target without a handler gets status 404. A connection stays open
/// for further requests until a handler or the client closes it.
class LoopbackServer {
public:
    using Handler = std::function<void(const LoopbackRequest&, LoopbackConnection&)>;

    struct Options {
        std::string address = "127.0.0.1";  ///< Any address of 127.0.0.0/8.
        bool encrypted = false;             ///< With a self-signed certificate for `address`.
        bool isOutdated = false;            ///< TLS 1.1 at most.
        std::vector<std::string> protocols = {"http/1.1"};  ///< By ALPN, best first.

        /// Called for each connection, instead of reading requests.
        std::function<void(LoopbackConnection&)> speaks = {};
    };

    LoopbackServer() : LoopbackServer(Options{}) {}
    explicit LoopbackServer(Options options);
    ~LoopbackServer();  ///< Ends all connections and waits for the handlers.
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    void on(const std::string& target, Handler handler);
    void onAnythingElse(Handler handler);

    std::uint16_t port() const { return port_; }
    std::string url(const std::string& target) const;
    std::string urlOf(const std::string& host, const std::string& target) const;

    /// The server's certificate as a PEM file, for clients that should trust it.
    std::string certificateFile() const;

    /// The name under which OpenSSL looks for the certificate in a folder (openssl-rehash(1)).
    std::string certificateName() const;

    std::vector<LoopbackRequest> requests() const;
    bool waitForRequests(std::size_t count) const;  ///< False if they do not arrive.
    int acceptedConnections() const;
    bool waitForOpenConnections(std::size_t count) const;  ///< Exactly `count`.

private:
    void acceptConnections();
    void serve(int socket, int number);
    void handleRequests(LoopbackConnection& connection, int number);
    Handler handlerFor(const std::string& target) const;

    Options options_;
    std::unique_ptr<LoopbackTLS> tls_;
    int listener_ = -1;
    std::uint16_t port_ = 0;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    // Guarded by the mutex.
    std::map<std::string, Handler> handlers_;
    Handler otherwise_;
    std::vector<LoopbackRequest> requests_;
    std::vector<int> sockets_;  ///< The sockets of open connections.
    int accepted_ = 0;
    bool ending_ = false;
    std::vector<std::thread> connectionThreads_;

    std::thread acceptThread_;
};

/// Handlers for common cases.
LoopbackServer::Handler answering(int status, std::string body,
                                  std::vector<std::pair<std::string, std::string>> headers = {});
LoopbackServer::Handler redirectingTo(std::string location, int status = 302);

}  // namespace glintmark::test
