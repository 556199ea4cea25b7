#pragma once

#include "platform/Log.h"

namespace glintmark::platform {

/// The system log by syslog(3), identity "glintmark", facility user; and the bare lines on standard
/// error, unless that is the journal already, which would hold each line twice.
class SyslogLog : public Log {
public:
    /// `errorDescriptor` stays the caller's.
    explicit SyslogLog(int errorDescriptor = 2);

    void write(std::string_view message) override;
    void debug(std::string_view message) override;

private:
    const int errorDescriptor_;
    const bool writesToErrorDescriptor_;
};

}  // namespace glintmark::platform
