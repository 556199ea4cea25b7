#include "tests/support/LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "tests/support/Event.h"
#include "tests/support/LoopbackChannel.h"
#include "tests/support/LoopbackTLS.h"

namespace glintmark::test {

namespace {

constexpr int backlog = 512;
constexpr std::string_view endOfHead = "\r\n\r\n";

LoopbackRequest parseHead(const std::string& head, int connection) {
    LoopbackRequest request;
    request.connection = connection;
    std::istringstream lines(head);
    lines >> request.method >> request.target >> request.version;
    std::string line;
    std::getline(lines, line);  // the rest of the first line
    while (std::getline(lines, line)) {
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) {
            continue;
        }
        const std::size_t start = line.find_first_not_of(" \t", colon + 1);
        const std::size_t end = line.find_last_not_of(" \t\r");
        request.headers.emplace_back(line.substr(0, colon),
                                     start <= end ? line.substr(start, end + 1 - start) : "");
    }
    return request;
}

sockaddr_in socketAddress(const std::string& address) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    if (::inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1 ||
        !address.starts_with("127.")) {
        throw std::invalid_argument("not a loopback address: " + address);
    }
    return name;
}

int listenOn(const std::string& address, std::uint16_t& port) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in name = socketAddress(address);
    socklen_t length = sizeof(name);
    auto* generic = reinterpret_cast<sockaddr*>(&name);
    if (::bind(listener, generic, length) != 0 || ::listen(listener, backlog) != 0 ||
        ::getsockname(listener, generic, &length) != 0) {
        throw std::runtime_error("cannot listen on " + address);
    }
    port = ntohs(name.sin_port);
    return listener;
}

}  // namespace

std::optional<std::string> LoopbackRequest::header(std::string_view name) const {
    const auto found = std::find_if(headers.begin(), headers.end(), [&](const auto& field) {
        return field.first.size() == name.size() &&
               ::strncasecmp(field.first.data(), name.data(), name.size()) == 0;
    });
    return found == headers.end() ? std::nullopt : std::optional(found->second);
}

LoopbackConnection::LoopbackConnection(std::unique_ptr<LoopbackChannel> channel)
    : channel_(std::move(channel)) {}

LoopbackConnection::~LoopbackConnection() = default;

bool LoopbackConnection::send(std::string_view bytes) { return channel_->write(bytes); }

bool LoopbackConnection::answer(int status, std::string_view body,
                                const std::vector<std::pair<std::string, std::string>>& headers) {
    std::string text = "HTTP/1.1 " + std::to_string(status) + " Scripted\r\n";
    for (const auto& [name, value] : headers) {
        text.append(name).append(": ").append(value).append("\r\n");
    }
    text += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    return send(text.append(body));
}

bool LoopbackConnection::sendChunk(std::string_view bytes) {
    std::ostringstream size;
    size << std::hex << bytes.size();
    return send(size.str() + "\r\n" + std::string(bytes) + "\r\n");
}

bool LoopbackConnection::receiveMore() {
    const std::string more = channel_->read();
    unread_ += more;
    return !more.empty();
}

std::string LoopbackConnection::receiveHead() {
    std::size_t end = unread_.find(endOfHead);
    while (end == std::string::npos) {
        if (!receiveMore()) {
            return {};
        }
        end = unread_.find(endOfHead);
    }
    return receive(end + endOfHead.size());
}

std::string LoopbackConnection::receive(std::size_t count) {
    while (unread_.size() < count && receiveMore()) {
    }
    std::string taken = unread_.substr(0, count);
    unread_.erase(0, count);
    return taken;
}

void LoopbackConnection::holdUntilClosed() {
    while (receiveMore()) {
    }
    open_ = false;
}

void LoopbackConnection::reset() {
    const linger atOnce{1, 0};
    ::setsockopt(channel_->socket(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    open_ = false;
}

void LoopbackConnection::close() {
    channel_->close();
    open_ = false;
}

bool LoopbackConnection::isResumed() const { return channel_->isResumed(); }

std::string LoopbackConnection::negotiatedProtocol() const { return channel_->protocol(); }

LoopbackServer::LoopbackServer(Options options)
    : options_(std::move(options)), otherwise_(answering(404, "")) {
    if (options_.encrypted) {
        tls_ = std::make_unique<LoopbackTLS>(options_.address, options_.protocols,
                                             options_.isOutdated);
    }
    listener_ = listenOn(options_.address, port_);
    acceptThread_ = std::thread([this] { acceptConnections(); });
}

LoopbackServer::~LoopbackServer() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
        for (const int socket : sockets_) {
            ::shutdown(socket, SHUT_RDWR);
        }
        ::shutdown(listener_, SHUT_RDWR);
    }
    acceptThread_.join();
    for (std::thread& thread : connectionThreads_) {
        thread.join();
    }
    ::close(listener_);
}

void LoopbackServer::on(const std::string& target, Handler handler) {
    const std::lock_guard lock(mutex_);
    handlers_[target] = std::move(handler);
}

void LoopbackServer::onAnythingElse(Handler handler) {
    const std::lock_guard lock(mutex_);
    otherwise_ = std::move(handler);
}

std::string LoopbackServer::url(const std::string& target) const {
    return urlOf(options_.address, target);
}

std::string LoopbackServer::urlOf(const std::string& host, const std::string& target) const {
    return (options_.encrypted ? "https://" : "http://") + host + ":" + std::to_string(port_) +
           target;
}

std::string LoopbackServer::certificateFile() const {
    return tls_ ? tls_->certificateFile() : std::string();
}

std::string LoopbackServer::certificateName() const {
    return tls_ ? tls_->certificateName() : std::string();
}

std::vector<LoopbackRequest> LoopbackServer::requests() const {
    const std::lock_guard lock(mutex_);
    return requests_;
}

bool LoopbackServer::waitForRequests(std::size_t count) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return requests_.size() >= count; });
}

int LoopbackServer::acceptedConnections() const {
    const std::lock_guard lock(mutex_);
    return accepted_;
}

bool LoopbackServer::waitForOpenConnections(std::size_t count) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return sockets_.size() == count; });
}

void LoopbackServer::acceptConnections() {
    while (true) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard lock(mutex_);
        if (ending_ || socket < 0) {
            if (socket >= 0) {
                ::close(socket);
            }
            return;
        }
        const int on = 1;
        ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        sockets_.push_back(socket);
        connectionThreads_.emplace_back(
            [this, socket, number = accepted_++] { serve(socket, number); });
        changed_.notify_all();
    }
}

void LoopbackServer::serve(int socket, int number) {
    // The TLS library writes without MSG_NOSIGNAL, and a client that has gone must not end the
    // process.
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe, nullptr);

    if (auto channel = tls_ ? tls_->accept(socket) : plainChannel(socket)) {
        LoopbackConnection connection(std::move(channel));
        if (options_.speaks) {
            options_.speaks(connection);
        } else {
            handleRequests(connection, number);
        }
    }
    const std::lock_guard lock(mutex_);
    std::erase(sockets_, socket);
    ::close(socket);
    changed_.notify_all();
}

void LoopbackServer::handleRequests(LoopbackConnection& connection, int number) {
    while (connection.isOpen()) {
        const std::string head = connection.receiveHead();
        if (head.empty()) {
            return;
        }
        const LoopbackRequest request = parseHead(head, number);
        {
            const std::lock_guard lock(mutex_);
            requests_.push_back(request);
            changed_.notify_all();
        }
        handlerFor(request.target)(request, connection);
    }
}

LoopbackServer::Handler LoopbackServer::handlerFor(const std::string& target) const {
    const std::lock_guard lock(mutex_);
    const auto found = handlers_.find(target);
    return found != handlers_.end() ? found->second : otherwise_;
}

LoopbackServer::Handler answering(int status, std::string body,
                                  std::vector<std::pair<std::string, std::string>> headers) {
    return [status, body = std::move(body), headers = std::move(headers)](
               const LoopbackRequest&, LoopbackConnection& connection) {
        connection.answer(status, body, headers);
    };
}

LoopbackServer::Handler redirectingTo(std::string location, int status) {
    return answering(status, "moved", {{"Location", std::move(location)}});
}

}  // namespace glintmark::test
