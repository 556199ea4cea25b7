#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "linux/workspace/PreparedIcons.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::platform {
namespace {

const std::vector<std::uint8_t> white(std::size_t{16} * 16 * 4, 255);

BitmapImageRep bitmapOf(const std::shared_ptr<const void>& owner) {
    return {16, 16, true, owner, white};
}

TEST(PreparedIconsTest, AnIconIsEncodedAndStored) {
    const test::TemporaryDirectory folder;
    IconStore store(folder.path());
    const PreparedIcon icon = preparedIcon({16, 16, true, white}, store);
    ASSERT_TRUE(icon.name);
    EXPECT_EQ(test::TemporaryDirectory::readWhole(store.pathOf(*icon.name)), icon.pictures.full);
    EXPECT_LT(icon.pictures.normal.size(), icon.pictures.large.size());
}

TEST(PreparedIconsTest, AnIconThatCannotBeStoredHasItsPicturesOnly) {
    IconStore store("/proc/nowhere");
    const PreparedIcon icon = preparedIcon({16, 16, true, white}, store);
    EXPECT_EQ(icon.name, std::nullopt);
    EXPECT_FALSE(icon.pictures.full.empty());
}

TEST(PreparedIconsTest, AnIconIsTakenOnceByItsVeryPixels) {
    PreparedIcons icons;
    const BitmapImageRep bitmap(16, 16, true, white);
    icons.add(bitmap, {{}, "name"});
    EXPECT_FALSE(icons.take({16, 16, true, white}));
    EXPECT_EQ(icons.take(bitmap)->name, "name");
    EXPECT_FALSE(icons.take(bitmap));
}

TEST(PreparedIconsTest, ThePixelsStayUntilTheIconIsTaken) {
    PreparedIcons icons;
    const auto owner = std::make_shared<int>(0);
    icons.add(bitmapOf(owner), {});
    EXPECT_EQ(owner.use_count(), 2);
    icons.take(bitmapOf(owner));
    EXPECT_EQ(owner.use_count(), 1);
}

}  // namespace
}  // namespace glintmark::platform
