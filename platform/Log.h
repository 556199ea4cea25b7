#pragma once

#include <string_view>

namespace glintmark::platform {

/// The program's log: one line per event, the only trace of failures.
///
/// May be called from any thread; lines of one thread keep their order.
class Log {
public:
    virtual ~Log() = default;

    /// Writes one line. `message` is read as a format string without arguments
    /// (`formatLogMessage`), so a percent sign in a path or link is expanded; this is kept on
    /// purpose. Each sink receives the expanded text as data, control characters included.
    virtual void write(std::string_view message) = 0;

    /// Writes a line of the platform's own, for those who debug it: not one of the program's
    /// lines, not expanded, and not shown on standard error.
    virtual void debug(std::string_view message) = 0;
};

}  // namespace glintmark::platform
