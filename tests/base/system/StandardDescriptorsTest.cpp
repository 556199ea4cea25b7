#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <vector>

#include "base/system/StandardDescriptors.h"

namespace glintmark {
namespace {

bool isNullDevice(int descriptor) {
    struct stat opened {};
    struct stat device {};
    return ::fstat(descriptor, &opened) == 0 && ::stat("/dev/null", &device) == 0 &&
           opened.st_rdev == device.st_rdev;
}

/// Ends the process with status 0 if `closed` become the null device and nothing else changes.
void checkAfterClosing(const std::vector<int>& closed) {
    std::array isNull{isNullDevice(0), isNullDevice(1), isNullDevice(2)};
    for (const int descriptor : closed) {
        ::close(descriptor);
        isNull.at(static_cast<std::size_t>(descriptor)) = true;
    }
    openStandardDescriptors();
    bool holds = true;
    for (const int descriptor : {0, 1, 2}) {
        holds =
            holds && isNullDevice(descriptor) == isNull.at(static_cast<std::size_t>(descriptor));
    }
    std::_Exit(holds ? EXIT_SUCCESS : EXIT_FAILURE);
}

TEST(StandardDescriptorsTest, ThoseThatAreClosedBecomeTheNullDevice) {
    const std::vector<int> rows[] = {{}, {0}, {1}, {2}, {0, 2}, {0, 1, 2}};
    for (const auto& closed : rows) {
        EXPECT_EXIT(checkAfterClosing(closed), testing::ExitedWithCode(EXIT_SUCCESS), "")
            << testing::PrintToString(closed);
    }
}

TEST(StandardDescriptorsTest, NoOtherDescriptorStaysOpen) {
    const int before = ::dup(STDERR_FILENO);
    ::close(before);
    openStandardDescriptors();
    const int after = ::dup(STDERR_FILENO);
    ::close(after);
    EXPECT_EQ(after, before);
}

}  // namespace
}  // namespace glintmark
