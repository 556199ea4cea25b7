#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sysexits.h>

#include "link/LinkFile.h"
#include "link/OpenCommand.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark::link {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class OpenCommandTest : public doubles::PlatformTest {
protected:
    int open(const std::vector<std::string>& paths) {
        return openLinks(
            paths,
            [this](const URL& url) {
                opened_.push_back(url.absoluteString());
                return hasBrowser_;
            },
            [this](const std::string& message) { complaints_.push_back(message); });
    }

    void SetUp() override {
        platform().bundle.texts = {{"error.scheme", "scheme %1"}};
        files().create("/l/web.webloc", weblocBytes("https://h/a?b"));
    }

    bool hasBrowser_ = true;
    std::vector<std::string> opened_;
    std::vector<std::string> complaints_;
};

TEST_F(OpenCommandTest, TheLinkOfEachFileIsOpened) {
    files().create("/l/b.url", "[InternetShortcut]\r\nURL=http://b/\r\n");
    EXPECT_EQ(open({"/l/web.webloc", "file:///l/b.url"}), EX_OK);
    EXPECT_THAT(opened_, ElementsAre("https://h/a?b", "http://b/"));
    EXPECT_THAT(complaints_, IsEmpty());
}

TEST_F(OpenCommandTest, OtherSchemesAreRefusedByName) {
    files().create("/l/js.webloc", weblocBytes("javascript:alert(1)"));
    files().create("/l/file.webloc", weblocBytes("file:///etc/passwd"));
    files().create("/l/none.webloc", weblocBytes("h.example"));
    EXPECT_EQ(open({"/l/js.webloc", "/l/file.webloc", "/l/none.webloc"}), EX_DATAERR);
    EXPECT_THAT(opened_, IsEmpty());
    EXPECT_THAT(complaints_,
                ElementsAre("/l/js.webloc: scheme javascript", "/l/file.webloc: scheme file",
                            "/l/none.webloc: error.noAddress"));
}

TEST_F(OpenCommandTest, OneBadFileDoesNotStopTheOthers) {
    files().create("/l/empty.webloc", "");
    EXPECT_EQ(open({"/l/gone.webloc", "/l/empty.webloc", "/l/web.webloc"}), EX_NOINPUT);
    EXPECT_THAT(opened_, ElementsAre("https://h/a?b"));
    EXPECT_THAT(complaints_,
                ElementsAre("/l/gone.webloc: icon.unreadable", "/l/empty.webloc: icon.noLink"));
}

TEST_F(OpenCommandTest, WithoutABrowserTheUserIsTold) {
    hasBrowser_ = false;
    EXPECT_EQ(open({"/l/web.webloc"}), EX_UNAVAILABLE);
    EXPECT_THAT(complaints_, ElementsAre("/l/web.webloc: error.noBrowser"));
}

}  // namespace
}  // namespace glintmark::link
