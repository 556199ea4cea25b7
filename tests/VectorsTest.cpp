#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

#include "tests/Vectors.h"
#include "tests/support/TemporaryDirectory.h"

namespace glintmark::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::ThrowsMessage;

constexpr const char* variable = "GLINTMARK_VECTORS";
constexpr const char* oneCase = R"({"cases": [{"id": "a", "why": "b", "firm": true}]})";

/// The environment variable names a temporary folder.
class VectorsTest : public testing::Test {
protected:
    // NOLINTBEGIN(concurrency-mt-unsafe): no other thread runs
    VectorsTest() {
        if (const char* folder = std::getenv(variable)) {
            earlier_ = folder;
        }
        setenv(variable, folder_.path().c_str(), 1);
    }
    ~VectorsTest() override {
        if (earlier_) {
            setenv(variable, earlier_->c_str(), 1);
        } else {
            unsetenv(variable);
        }
    }
    // NOLINTEND(concurrency-mt-unsafe)

    const TemporaryDirectory& folder() const { return folder_; }

    /// That loading `name` fails with a message that says `what`, the file, and the variable.
    void expectFailure(const std::string& name, const std::string& what) const {
        EXPECT_THAT(
            [&] { loadVectors(name); },
            ThrowsMessage<std::runtime_error>(
                AllOf(HasSubstr(what + " " + folder().path(name + ".json")), HasSubstr(variable))));
    }

private:
    TemporaryDirectory folder_;
    std::optional<std::string> earlier_;
};

TEST_F(VectorsTest, TheFileOfTheNamedFolderIsRead) {
    folder().write("url_parse.json", oneCase);
    const auto cases = loadVectors("url_parse");
    ASSERT_THAT(cases, SizeIs(1));
    EXPECT_TRUE(cases.front().firm);
    EXPECT_EQ(cases.front().label(), "a: b");
}

TEST_F(VectorsTest, AFolderWithoutFilesFails) {
    expectFailure("url_parse", "Cannot read");
    expectFailure("html_extract_real", "Cannot read");
}

TEST_F(VectorsTest, AFolderThatIsMissingFails) {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no other thread runs
    setenv(variable, folder().path("missing").c_str(), 1);
    EXPECT_THROW(loadVectors("url_parse"), std::runtime_error);
}

TEST_F(VectorsTest, AFolderWithOnlyOtherFilesFails) {
    folder().write("url_parse.json", oneCase);
    expectFailure("resolve_url", "Cannot read");
    expectFailure("html_extract_real", "Cannot read");
}

TEST_F(VectorsTest, AFileWithoutCasesFails) {
    folder().write("url_parse.json", R"({"cases": []})");
    expectFailure("url_parse", "No cases in");
}

TEST_F(VectorsTest, OnlyCasesFromRealSitesMayBeMissingBesideTheOthers) {
    folder().write("html_extract.json", oneCase);
    EXPECT_THAT(loadVectors("html_extract_real"), IsEmpty());
    folder().write("html_extract_real.json", oneCase);
    EXPECT_THAT(loadVectors("html_extract_real"), SizeIs(1));
}

}  // namespace
}  // namespace glintmark::test
