#pragma once

#include <string>
#include <vector>

namespace glintmark::test {

/// While this exists, records the address of each connect(2) to an IP address in this process, as
/// "ADDRESS:PORT", and refuses those that are not loopback. (The program's connect is called
/// instead of the C library's.)
class Connections {
public:
    Connections();
    ~Connections();
    Connections(const Connections&) = delete;
    Connections& operator=(const Connections&) = delete;

    /// Returns the attempts since the last call, in their order.
    static std::vector<std::string> take();
};

}  // namespace glintmark::test
