#pragma once

#include <gtest/gtest.h>

#include <functional>

#include "linux/glib/GLibHandles.h"
#include "tests/linux/Waiting.h"

namespace glintmark::platform {

/// A main context of the test's own, which runs only while the test lets it.
class GLibContextFixture : public testing::Test {
protected:
    void iterateUntil(const std::function<bool()>& condition) {
        EXPECT_TRUE(waitFor([&] {
            g_main_context_iteration(context_.get(), FALSE);
            return condition();
        }));
    }

    GMainContextHandle context_{g_main_context_new()};
};

}  // namespace glintmark::platform
