#include "linux/process/SyslogLog.h"

#include <sys/stat.h>
#include <syslog.h>

#include <cstdlib>
#include <string>

#include "base/text/LogMessage.h"
#include "linux/files/WholeFile.h"

namespace glintmark::platform {

namespace {

constexpr const char* identity = "glintmark";

/// True if systemd connected `descriptor` to the journal. JOURNAL_STREAM holds the device and inode
/// numbers of that connection (systemd.exec(5)).
bool isJournal(int descriptor) {
    const char* journalStream = std::getenv("JOURNAL_STREAM");  // NOLINT(concurrency-mt-unsafe)
    struct stat status {};
    if (journalStream == nullptr || ::fstat(descriptor, &status) != 0) {
        return false;
    }
    return journalStream == std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

}  // namespace

SyslogLog::SyslogLog(int errorDescriptor)
    : errorDescriptor_(errorDescriptor), writesToErrorDescriptor_(!isJournal(errorDescriptor)) {
    ::openlog(identity, 0, LOG_USER);
}

void SyslogLog::write(std::string_view message) {
    std::string line = formatLogMessage(message);
    ::syslog(LOG_NOTICE, "%s", line.c_str());
    if (writesToErrorDescriptor_) {
        line += '\n';
        writeWhole(errorDescriptor_, line);  // fails when the reader is gone
    }
}

void SyslogLog::debug(std::string_view message) {
    ::syslog(LOG_DEBUG, "%s", std::string(message).c_str());
}

}  // namespace glintmark::platform
