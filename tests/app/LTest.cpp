#include <gtest/gtest.h>

#include "app/L.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark {
namespace {

class LTest : public doubles::PlatformTest {};

TEST_F(LTest, ReturnsTheTextForAKey) {
    platform().bundle.texts = {{"menu.quit", "終了"}};
    EXPECT_EQ(L("menu.quit"), "終了");
}

TEST_F(LTest, AKeyWithoutATextIsReturnedItself) {
    EXPECT_EQ(L("menu.quit"), "menu.quit");
    EXPECT_EQ(L(""), "");
}

}  // namespace
}  // namespace glintmark
