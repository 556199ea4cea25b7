#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "linux/workspace/Command.h"
#include "tests/linux/MainLoop.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

class CommandTest : public testing::Test {
protected:
    CommandTest() { g_setenv("PATH", (folder_.path() + ":" + path_).c_str(), TRUE); }
    ~CommandTest() override { g_setenv("PATH", path_.c_str(), TRUE); }

    test::TemporaryDirectory folder_;

private:
    const std::string path_ = g_getenv("PATH");
};

TEST_F(CommandTest, AProgramOfThePathGetsItsArgumentAsOneWord) {
    const std::string program = folder_.write("record-argument",
                                              "#!/bin/sh\nprintf '%s' \"$#: $1\" > \"$0.new\"\n"
                                              "mv \"$0.new\" \"$0.done\"\n");
    ASSERT_EQ(chmod(program.c_str(), 0755), 0);
    EXPECT_TRUE(startCommand("record-argument", "a 'b' $HOME"));
    EXPECT_TRUE(
        waitUntil([&] { return folder_.read("record-argument.done") == "1: a 'b' $HOME"; }));
}

TEST_F(CommandTest, AMissingProgramIsAFailure) {
    EXPECT_FALSE(startCommand("glintmark-no-such-program", ""));
}

}  // namespace
}  // namespace glintmark::platform
