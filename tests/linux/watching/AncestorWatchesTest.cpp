#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string>
#include <vector>

#include "linux/watching/AncestorWatches.h"
#include "tests/linux/Unprivileged.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class AncestorWatchesTest : public testing::Test {
protected:
    AncestorWatchesTest() {
        directory_.createDirectories("one/closed/links");
        directory_.createDirectories("one/two/links");
        setMode(".", 0755);
        setMode("one", 0755);
    }

    AncestorWatches watchesOf(const std::vector<std::string>& names) {
        std::vector<std::string> paths;
        for (const auto& name : names) {
            paths.push_back(directory_.path(name));
        }
        AncestorWatches watches(*Inotify::make(), paths);
        for (std::size_t i = 0; i < paths.size(); ++i) {
            armUnprivileged(watches, i);
        }
        return watches;
    }

    static void armUnprivileged(AncestorWatches& watches, std::size_t index) {
        const Unprivileged unprivileged;
        watches.arm(index);
    }

    void setMode(const std::string& name, mode_t mode) {
        ASSERT_EQ(::chmod(directory_.path(name).c_str(), mode), 0);
    }

    /// The number of watches that ask for changed attributes: proc(5), /proc/[pid]/fdinfo.
    static int attributeWatches(const AncestorWatches& watches) {
        std::ifstream info("/proc/self/fdinfo/" + std::to_string(watches.descriptor()));
        int count = 0;
        for (std::string line; std::getline(info, line);) {
            const auto place = line.find(" mask:");
            unsigned mask = 0;
            if (place != std::string::npos) {
                const auto* const digits = line.data() + place + std::string_view(" mask:").size();
                std::from_chars(digits, line.data() + line.size(), mask, 16);
            }
            count += (mask & IN_ATTRIB) != 0 ? 1 : 0;
        }
        return count;
    }

    test::TemporaryDirectory directory_;
};

TEST_F(AncestorWatchesTest, ChangedAttributesAreWatchedOnlyAsLongAsAPathIsClosed) {
    setMode("one/closed", 0);
    auto watches = watchesOf({"one/closed/links", "one/two/links"});
    EXPECT_GT(attributeWatches(watches), 0);
    setMode("one/closed", 0755);
    EXPECT_THAT(watches.readChanged().paths, ElementsAre(0));
    armUnprivileged(watches, 0);
    EXPECT_EQ(attributeWatches(watches), 0);
    setMode("one", 0700);
    setMode("one", 0755);
    EXPECT_THAT(watches.readChanged().paths, IsEmpty());
}

TEST_F(AncestorWatchesTest, AnotherPathKeepsTheEventsThatItNeeds) {
    setMode("one/closed", 0);
    auto watches = watchesOf({"one/closed/links", "one/missing", "one/closed/other"});
    const int before = attributeWatches(watches);
    armUnprivileged(watches, 0);
    armUnprivileged(watches, 1);
    EXPECT_EQ(attributeWatches(watches), before);
    setMode("one/closed", 0755);
    EXPECT_THAT(watches.readChanged().paths, ElementsAre(0, 2));
    armUnprivileged(watches, 0);
    EXPECT_GT(attributeWatches(watches), 0);  // the third path is not armed again
    armUnprivileged(watches, 2);
    EXPECT_EQ(attributeWatches(watches), 0);
    directory_.createDirectories("one/missing");
    EXPECT_THAT(watches.readChanged().paths, ElementsAre(1));
}

}  // namespace
}  // namespace glintmark::platform
