#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "link/FetchPage.h"
#include "tests/doubles/TestPlatform.h"

namespace glintmark::link {
namespace {

using testing::HasSubstr;
using testing::Not;

std::shared_ptr<const Image> picture(int edge) {
    const auto bytes = static_cast<std::size_t>(edge * edge) * BitmapImageRep::bytesPerPixel;
    return std::make_shared<const Image>(
        BitmapImageRep(edge, edge, false, std::vector<std::uint8_t>(bytes, 200)));
}

RequestRecord request(std::string url, std::shared_ptr<const Image> image) {
    RequestRecord record;
    record.url = std::move(url);
    record.image = std::move(image);
    return record;
}

class FetchPageTest : public doubles::PlatformTest {};

TEST_F(FetchPageTest, EveryCandidateIsShownWithItsPictureAndScore) {
    const auto small = picture(32);
    const auto large = picture(180);
    const FetchReport report({request("http://h/s", small), request("http://h/l", large)},
                             {{small, IconSource::faviconICO}, {large, IconSource::htmlIcon}});
    const std::string page = asPage(report, "http://h/");
    EXPECT_THAT(page, HasSubstr("<tr><td><img alt=\"\" src=\"data:image/png;base64,iVBORw0KGgo"));
    EXPECT_THAT(page, HasSubstr("<tr class=\"winner\"><td><img"));
    EXPECT_THAT(page, HasSubstr("0 + 32 + 0 + 5</td><td class=\"number\">37</td><td>http://h/s"));
    EXPECT_THAT(page,
                HasSubstr("2000 + 180 + 0 + 20</td><td class=\"number\">2200</td><td>http://h/l"));
    EXPECT_THAT(page, HasSubstr("explain.highest"));
}

TEST_F(FetchPageTest, NothingOfTheSiteBecomesMarkup) {
    const std::string attack = "\"'><script>alert(1)</script>&\xFF";
    RequestRecord record = request("http://h/" + attack, nullptr);
    record.error = attack;
    const std::string page = asPage(FetchReport({record}, {}), "http://h/" + attack);
    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(page, HasSubstr("&lt;script&gt;alert(1)&lt;/script&gt;&amp;\uFFFD"));
    EXPECT_THAT(page, HasSubstr("default-src 'none'"));
    EXPECT_THAT(page, HasSubstr("icon.noIcon"));
}

TEST_F(FetchPageTest, AWinnerWithoutTheHighestScoreIsExplained) {
    const auto wide = picture(48);
    const auto narrow = picture(47);
    const FetchReport report({},
                             {{wide, IconSource::appleTouchIcon}, {narrow, IconSource::htmlIcon}});
    EXPECT_THAT(asPage(report, "http://h/"), HasSubstr("explain.tooNarrow"));
}

}  // namespace
}  // namespace glintmark::link
