#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "linux/glib/GLibHandles.h"
#include "tests/linux/MainLoop.h"

namespace glintmark::platform {

/// A private main context, which runs only while the test iterates it.
class GLibContextFixture : public testing::Test {
protected:
    void iterateUntil(const std::function<bool()>& condition) {
        EXPECT_TRUE(waitUntil(condition, context_.get()));
    }

    GMainContextHandle context_{g_main_context_new()};
};

}  // namespace glintmark::platform
