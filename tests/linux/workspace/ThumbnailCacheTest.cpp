#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "base/work/DispatchQueue.h"
#include "linux/glib/GLibHandles.h"
#include "linux/workspace/ThumbnailCache.h"
#include "tests/linux/PNGReading.h"
#include "tests/support/Mounting.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WholeFile.h"

namespace glintmark::platform {
namespace {

using testing::Pair;
using testing::UnorderedElementsAre;

unsigned modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777U;
}

std::string fileNameOf(const std::string& uri) {
    const GStringHandle digits(g_compute_checksum_for_string(G_CHECKSUM_MD5, uri.c_str(), -1));
    return std::string(digits.get()) + ".png";
}

/// Helpers that do all work before `async` returns, or none.
class Helpers final : public DispatchQueue {
public:
    explicit Helpers(bool areFree) : areFree_(areFree) {}

    void async(Work work) override {
        if (areFree_) {
            work();
        }
    }
    void asyncAfter(std::chrono::nanoseconds /*delay*/, Work /*work*/) override {}

private:
    bool areFree_;
};

IconPictures picturesOf(const BitmapImageRep& bitmap, bool helpersAreFree = false) {
    Helpers helpers(helpersAreFree);
    return encodedPictures(bitmap, helpers);
}

struct SizeCase {
    const char* folder;
    int edge;
};

TEST(ThumbnailCacheTest, WritesEverySizeUnderTheNameOfTheURI) {
    const test::TemporaryDirectory folder;
    const ThumbnailCache cache(folder.path());
    // The address and its name are the example of the Thumbnail Managing Standard.
    const ThumbnailSubject subject{"file:///home/jens/photos/me.png", "1700000000", 321,
                                   "application/x-webloc"};
    ASSERT_TRUE(cache.write(picturesOf(square(512, 10, 200, 30)), subject));
    EXPECT_EQ(modeOf(folder / "thumbnails"), 0700U);
    for (const SizeCase size : {SizeCase{"normal", 128}, SizeCase{"large", 256},
                                SizeCase{"x-large", 512}, SizeCase{"xx-large", 512}}) {
        const std::string place = std::string("thumbnails/") + size.folder;
        const std::string file = place + "/c6ee772d9e49320e97ec29a7eb5b1697.png";
        EXPECT_EQ(modeOf(folder / place), 0700U);
        EXPECT_EQ(modeOf(folder / file), 0600U);
        const ReadPNG read = readPNG(folder.read(file));
        EXPECT_EQ(read.width, size.edge) << file;
        EXPECT_EQ(read.height, size.edge) << file;
        EXPECT_EQ(read.pixels[0], 10);
        EXPECT_EQ(read.pixels[1], 200);
        EXPECT_THAT(read.texts,
                    UnorderedElementsAre(
                        Pair("Thumb::URI", subject.uri), Pair("Thumb::MTime", "1700000000"),
                        Pair("Thumb::Size", "321"), Pair("Thumb::Mimetype", "application/x-webloc"),
                        Pair("Software", "Glintmark")));
    }
}

TEST(ThumbnailCacheTest, TheTwoLargestSizesShareOneFile) {
    const test::TemporaryDirectory folder;
    const ThumbnailCache cache(folder.path());
    const std::string name = fileNameOf("file:///a");
    const std::string large = folder / "thumbnails/x-large/" + name;
    const std::string largest = folder / "thumbnails/xx-large/" + name;
    for (const std::uint8_t red :
         {std::uint8_t{10}, std::uint8_t{20}}) {  // the second time over the first
        ASSERT_TRUE(cache.write(picturesOf(square(512, red, 2, 3)), {"file:///a", "1", 1, "a/b"}));
        EXPECT_TRUE(std::filesystem::equivalent(large, largest));
        EXPECT_EQ(readPNG(test::wholeFile(largest)).pixels[0], red);
    }
    const std::filesystem::directory_iterator entries(folder / "thumbnails/xx-large");
    EXPECT_EQ(std::distance(begin(entries), end(entries)), 1) << "nothing is left beside";
}

TEST(ThumbnailCacheTest, SizesOnDifferentFileSystemsAreWrittenTwice) {
    if (!test::mayMount()) {
        GTEST_SKIP() << "mounting takes root";
    }
    const test::TemporaryDirectory folder;
    folder.createDirectories("thumbnails/xx-large");
    test::withMount(folder / "thumbnails/xx-large", "tmpfs", nullptr, [&] {
        const ThumbnailCache cache(folder.path());
        ASSERT_TRUE(cache.write(picturesOf(square(512, 1, 2, 3)), {"file:///a", "1", 1, "a/b"}));
        const std::string file = "thumbnails/xx-large/" + fileNameOf("file:///a");
        EXPECT_EQ(readPNG(folder.read(file)).width, 512);
    });
}

TEST(ThumbnailCacheTest, APictureOfAnotherSizeIsStretched) {
    const IconPictures pictures = picturesOf(square(48, 1, 2, 3));
    EXPECT_EQ(readPNG(pictures.full).width, 512);
    EXPECT_EQ(readPNG(pictures.large).width, 256);
    EXPECT_EQ(readPNG(pictures.normal).width, 128);
}

TEST(ThumbnailCacheTest, ThePicturesAreTheSameWhetherAThreadIsFreeOrNot) {
    const IconPictures alone = picturesOf(square(300, 1, 2, 3), false);
    const IconPictures helped = picturesOf(square(300, 1, 2, 3), true);
    EXPECT_EQ(helped.full, alone.full);
    EXPECT_EQ(helped.large, alone.large);
    EXPECT_EQ(helped.normal, alone.normal);
}

TEST(ThumbnailCacheTest, AFolderThatCannotBeMadeIsAFailure) {
    const test::TemporaryDirectory folder;
    folder.write("thumbnails", "a file where the folder should be");
    const ThumbnailCache cache(folder.path());
    EXPECT_FALSE(cache.write(picturesOf(square(512, 1, 2, 3)), {"file:///a", "1", 1, "a/b"}));
}

}  // namespace
}  // namespace glintmark::platform
