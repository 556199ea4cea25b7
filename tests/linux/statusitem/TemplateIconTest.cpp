#include <glib.h>
#include <glib/gstdio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <optional>

#include "linux/glib/GLibHandles.h"
#include "linux/statusitem/TemplateIcon.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WholeFile.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// A square of 4 by 4 at the lower left of an 8 by 8 image.
TemplateImage lowerLeftSquare() {
    BezierPath path;
    path.moveTo({0, 0});
    path.lineTo({4, 0});
    path.lineTo({4, 4});
    path.lineTo({0, 4});
    path.closePath();
    return {{8, 8}, path};
}

std::vector<std::uint8_t> pixelAt(const std::vector<std::uint8_t>& argb, int side, int x, int y) {
    const auto begin = argb.begin() + (y * side + x) * 4;
    return {begin, begin + 4};
}

TEST(TemplateIconTest, TheOriginIsAtTheLowerLeft) {
    const auto argb = TemplateRenderer().render(lowerLeftSquare(), 8);
    ASSERT_EQ(argb.size(), 8U * 8U * 4U);
    EXPECT_THAT(pixelAt(argb, 8, 0, 7), ElementsAre(255, neutralGrey, neutralGrey, neutralGrey));
    EXPECT_THAT(pixelAt(argb, 8, 3, 4), ElementsAre(255, neutralGrey, neutralGrey, neutralGrey));
    EXPECT_EQ(pixelAt(argb, 8, 4, 4)[0], 0);
    EXPECT_EQ(pixelAt(argb, 8, 0, 0)[0], 0);
}

TEST(TemplateIconTest, TheImageFillsTheRequestedSize) {
    const auto argb =
        TemplateRenderer().render(lowerLeftSquare(), 18);  // cairo pads rows of this size
    ASSERT_EQ(argb.size(), 18U * 18U * 4U);
    EXPECT_EQ(pixelAt(argb, 18, 8, 9)[0], 255);
    EXPECT_EQ(pixelAt(argb, 18, 9, 9)[0], 0);
}

TEST(TemplateIconTest, AShapeInsideAnotherIsAHoleUnderTheEvenOddRule) {
    TemplateImage image{{8, 8}, BezierPath::roundedRect({0, 0}, {8, 8}, 1, 1)};
    image.filledPath.append(BezierPath::roundedRect({2, 2}, {4, 4}, 0, 0));
    EXPECT_EQ(pixelAt(TemplateRenderer().render(image, 8), 8, 4, 4)[0], 255);
    image.filledPath.setWindingRule(WindingRule::evenOdd);
    EXPECT_EQ(pixelAt(TemplateRenderer().render(image, 8), 8, 4, 4)[0], 0);
    EXPECT_THAT(symbolicSVG(image), HasSubstr("fill-rule=\"evenodd\""));
}

TEST(TemplateIconTest, TheSymbolicIconHasTheSamePathWithYDownwards) {
    const auto svg = symbolicSVG(lowerLeftSquare());
    EXPECT_THAT(svg, HasSubstr("d=\"M0 8L4 8L4 4L0 4Z\""));
    EXPECT_THAT(svg, HasSubstr("viewBox=\"0 0 8 8\""));
    EXPECT_THAT(svg, HasSubstr("fill-rule=\"nonzero\""));
    EXPECT_THAT(svg, HasSubstr("#808080"));
}

TEST(TemplateIconTest, CurvesBecomeCurves) {
    BezierPath path;
    path.moveTo({0, 0});
    path.curveTo({0, 1.5}, {0.25, 2}, {2, 2});
    EXPECT_THAT(symbolicSVG({{2, 2}, path}), HasSubstr("d=\"M0 2C0 0.5 0.25 0 2 0\""));
}

TEST(TemplateIconTest, TheIconFolderIsDeletedWithItsOwner) {
    const GStringHandle base(g_dir_make_tmp("glintmark-icon-XXXXXX", nullptr));
    const std::string folder = std::string(base.get()) + "/icons";
    const std::string file = folder + "/hicolor/scalable/apps/glintmark-symbolic.svg";
    {
        const SymbolicIconFolder icon(folder, lowerLeftSquare());
        EXPECT_EQ(icon.path(), folder);
        EXPECT_EQ(test::wholeFile(file), symbolicSVG(lowerLeftSquare()));
        EXPECT_EQ(test::wholeFile(folder + "/glintmark-symbolic.svg"),
                  symbolicSVG(lowerLeftSquare()));
    }
    EXPECT_FALSE(g_file_test(folder.c_str(), G_FILE_TEST_EXISTS));
    EXPECT_EQ(g_rmdir(base.get()), 0);
}

TEST(TemplateIconTest, TheIconFolderHasAnIndexThatListsTheIconsFolder) {
    const test::TemporaryDirectory base;
    const SymbolicIconFolder icon(base / "icons", lowerLeftSquare());
    const std::unique_ptr<GKeyFile, ReleaseWith<g_key_file_unref>> index(g_key_file_new());
    const std::string file = icon.path() + "/hicolor/index.theme";
    ASSERT_TRUE(g_key_file_load_from_file(index.get(), file.c_str(), G_KEY_FILE_NONE, nullptr));
    const GStringHandle folders(
        g_key_file_get_string(index.get(), "Icon Theme", "Directories", nullptr));
    EXPECT_STREQ(folders.get(), "scalable/apps");
    const GStringHandle type(g_key_file_get_string(index.get(), "scalable/apps", "Type", nullptr));
    EXPECT_STREQ(type.get(), "Scalable");
}

TEST(TemplateIconTest, AnIconIsInstalledIfADataFolderHasItInItsHicolorTheme) {
    const test::TemporaryDirectory folder;
    const std::string first = folder / "first";
    const std::string second = folder / "second";
    const std::array<const char*, 3> folders{first.c_str(), second.c_str(), nullptr};
    const std::array<const char*, 1> noFolders{nullptr};
    const auto isInstalled = [&] { return isSymbolicIconInstalled(folders.data(), "a-symbolic"); };
    EXPECT_FALSE(isInstalled());
    folder.write("second/icons/hicolor/symbolic/apps/b-symbolic.svg", "x");
    folder.write("second/icons/hicolor/16x16/apps/a-symbolic.png", "x");
    folder.write("second/icons/other/symbolic/apps/a-symbolic.svg", "x");
    folder.createDirectories("first/icons/hicolor/scalable/apps/a-symbolic.svg");
    EXPECT_FALSE(isInstalled());
    for (const char* place : {"symbolic", "scalable"}) {
        const std::string file =
            "second/icons/hicolor/" + std::string(place) + "/apps/a-symbolic.svg";
        folder.write(file, "x");
        EXPECT_TRUE(isInstalled()) << place;
        EXPECT_FALSE(isSymbolicIconInstalled(noFolders.data(), "a-symbolic"));
        folder.remove(file);
    }
}

TEST(TemplateIconTest, TheLastOwnerDeletesTheFolder) {
    const GStringHandle base(g_dir_make_tmp("glintmark-icon-XXXXXX", nullptr));
    const std::string folder = std::string(base.get()) + "/icons";
    const std::string file = folder + "/hicolor/scalable/apps/glintmark-symbolic.svg";
    auto first = std::make_optional<SymbolicIconFolder>(folder, lowerLeftSquare());
    auto second = std::make_optional<SymbolicIconFolder>(folder, lowerLeftSquare());
    auto third = std::make_optional<SymbolicIconFolder>(folder, lowerLeftSquare());
    second.reset();
    first.reset();
    EXPECT_EQ(test::wholeFile(file), symbolicSVG(lowerLeftSquare()));
    third.reset();
    EXPECT_FALSE(g_file_test(folder.c_str(), G_FILE_TEST_EXISTS));
    EXPECT_EQ(g_rmdir(base.get()), 0);
}

TEST(TemplateIconTest, WithoutAFolderThereIsNoIcon) {
    const SymbolicIconFolder icon("/dev/null/icons", lowerLeftSquare());
    EXPECT_EQ(icon.path(), "");
}

}  // namespace
}  // namespace glintmark::platform
