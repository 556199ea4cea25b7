#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "base/text/UUID.h"

namespace glintmark {
namespace {

TEST(UUIDTest, HasTheFormOfARandomIdentifier) {
    EXPECT_THAT(randomUUIDString(),
                testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-"
                                      "[0-9A-F]{12}"));
}

TEST(UUIDTest, IsFreshEachTime) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        EXPECT_TRUE(seen.insert(randomUUIDString()).second);
    }
}

}  // namespace
}  // namespace glintmark
