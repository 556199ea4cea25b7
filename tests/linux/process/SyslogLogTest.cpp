#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/system/FileDescriptor.h"
#include "linux/process/SyslogLog.h"
#include "tests/support/TemporaryDirectory.h"

namespace {

struct SystemLog {
    struct Record {
        int priority;
        std::string format;
        std::string text;
    };

    std::string identity;
    int facility = 0;
    std::vector<Record> records;
};

SystemLog systemLog;  // the calls of openlog(3) and syslog(3)

}  // namespace

// Replace the C library's functions, so that the test sees what reaches the system log.
extern "C" {

// NOLINTNEXTLINE(readability-identifier-naming)
void openlog(const char* identity, int /*options*/, int facility) {
    systemLog.identity = identity;
    systemLog.facility = facility;
}

void syslog(int priority, const char* format, ...) {  // NOLINT(cert-dcl50-cpp)
    va_list arguments;
    va_start(arguments, format);
    const char* text = va_arg(arguments, const char*);
    va_end(arguments);
    systemLog.records.push_back({priority, format, text});
}
}

namespace glintmark::platform {
namespace {

using testing::ElementsAre;

class SyslogLogTest : public testing::Test {
protected:
    void SetUp() override {
        ::unsetenv("JOURNAL_STREAM");
        systemLog = {};
        file_ = FileDescriptor(
            ::open(directory_.path("stderr").c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600));
        ASSERT_TRUE(file_);
    }
    void TearDown() override { ::unsetenv("JOURNAL_STREAM"); }

    std::string written() { return directory_.read("stderr"); }

    static std::vector<std::string> logged() {
        std::vector<std::string> lines;
        for (const auto& record : systemLog.records) {
            EXPECT_EQ(record.format, "%s");
            lines.push_back(record.text);
        }
        return lines;
    }

    test::TemporaryDirectory directory_;
    FileDescriptor file_;
};

TEST_F(SyslogLogTest, ALineReachesTheSystemLogAndStandardError) {
    SyslogLog log(file_.get());
    log.write("Glintmark: one");
    log.write("Glintmark: two");
    EXPECT_EQ(systemLog.identity, "glintmark");
    EXPECT_EQ(systemLog.facility, LOG_USER);
    EXPECT_THAT(logged(), ElementsAre("Glintmark: one", "Glintmark: two"));
    EXPECT_EQ(systemLog.records[0].priority, LOG_NOTICE);
    EXPECT_EQ(written(), "Glintmark: one\nGlintmark: two\n");
}

TEST_F(SyslogLogTest, AMessageIsExpandedExactlyOnce) {
    SyslogLog log(file_.get());
    log.write("100%% of %d at %%s\t\x1B");
    EXPECT_THAT(logged(), ElementsAre("100% of 0 at %s\t\x1B"));
    EXPECT_EQ(written(), "100% of 0 at %s\t\x1B\n");
}

TEST_F(SyslogLogTest, DebugLinesGoUnexpandedToTheSystemLogOnly) {
    SyslogLog log(file_.get());
    log.debug("watches %d%%");
    EXPECT_THAT(logged(), ElementsAre("watches %d%%"));
    EXPECT_EQ(systemLog.records[0].priority, LOG_DEBUG);
    EXPECT_EQ(written(), "");
}

TEST_F(SyslogLogTest, NothingGoesToStandardErrorIfThatIsTheJournal) {
    struct stat status {};
    ASSERT_EQ(::fstat(file_.get(), &status), 0);
    const auto journal = std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
    ::setenv("JOURNAL_STREAM", journal.c_str(), 1);
    SyslogLog log(file_.get());
    log.write("line");
    EXPECT_THAT(logged(), ElementsAre("line"));
    EXPECT_EQ(written(), "");
}

TEST_F(SyslogLogTest, AJournalOnAnotherDescriptorChangesNothing) {
    ::setenv("JOURNAL_STREAM", "1:1", 1);
    SyslogLog log(file_.get());
    log.write("line");
    EXPECT_EQ(written(), "line\n");
}

TEST_F(SyslogLogTest, AClosedStandardErrorDoesNotStopTheSystemLog) {
    SyslogLog log(-1);
    log.write("line");
    EXPECT_THAT(logged(), ElementsAre("line"));
}

}  // namespace
}  // namespace glintmark::platform
