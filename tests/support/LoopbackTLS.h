#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/support/LoopbackChannel.h"

namespace glintmark::test {

/// From now on the TLS library of this process allows every version that its users allow. The
/// distribution's settings would hide a client that allows too old ones.
void allowOutdatedTLS();

/// The server's side of TLS, with a fresh key and a self-signed certificate.
class LoopbackTLS {
public:
    /// With `isOutdated` it speaks no version later than TLS 1.1.
    LoopbackTLS(const std::string& address, const std::vector<std::string>& protocols,
                bool isOutdated);
    ~LoopbackTLS();
    LoopbackTLS(const LoopbackTLS&) = delete;
    LoopbackTLS& operator=(const LoopbackTLS&) = delete;

    /// Does the handshake. Null if the client aborts it.
    std::unique_ptr<LoopbackChannel> accept(int socket);

    const std::string& certificateFile() const { return certificateFile_; }
    const std::string& certificateName() const { return certificateName_; }

private:
    struct State;

    std::unique_ptr<State> state_;
    std::string certificateFile_;
    std::string certificateName_;
};

}  // namespace glintmark::test
