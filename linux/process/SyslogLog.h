#pragma once

#include "platform/Log.h"

namespace glintmark::platform {

/// Writes each line to the system log (syslog(3), identity "glintmark", facility user) and without
/// a prefix to standard error. Standard error is left out if systemd connected it to the journal,
/// which would otherwise hold each line twice.
class SyslogLog : public Log {
public:
    /// The caller keeps ownership of `errorDescriptor`.
    explicit SyslogLog(int errorDescriptor = 2);

    void write(std::string_view message) override;
    void debug(std::string_view message) override;

private:
    const int errorDescriptor_;
    const bool writesToErrorDescriptor_;
};

}  // namespace glintmark::platform
