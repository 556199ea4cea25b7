#pragma once

#include <string_view>

namespace glintmark::platform {

/// The program's log: one line per event. Failures are reported nowhere else.
///
/// May be called from any thread; lines of one thread keep their order.
class Log {
public:
    virtual ~Log() = default;

    /// Writes one line. `message` is a format string without arguments (`formatLogMessage`), so a
    /// percent sign in a path or link is expanded. This is kept on purpose. The expanded text is
    /// written as it is, control characters included.
    virtual void write(std::string_view message) = 0;

    /// Writes a line for debugging the platform. It is not expanded and does not appear on standard
    /// error.
    virtual void debug(std::string_view message) = 0;
};

}  // namespace glintmark::platform
