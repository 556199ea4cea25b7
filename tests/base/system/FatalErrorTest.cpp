#include <gtest/gtest.h>

#include <csignal>

#include "base/system/FatalError.h"

namespace glintmark {
namespace {

TEST(FatalErrorDeathTest, SaysWhyAndAborts) {
    EXPECT_EXIT(fatalError("The sky fell, 100%n"), testing::KilledBySignal(SIGABRT),
                "^Fatal error: The sky fell, 100%n\n$");
}

}  // namespace
}  // namespace glintmark
