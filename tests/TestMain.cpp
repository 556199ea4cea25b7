#include <gmock/gmock.h>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Death tests start a fresh process: forking one that has threads is undefined.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
