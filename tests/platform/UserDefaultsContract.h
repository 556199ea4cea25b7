#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/UserDefaults.h"

namespace glintmark::platform {

/// Settings under test. They begin empty.
class UserDefaultsSubject {
public:
    virtual ~UserDefaultsSubject() = default;

    virtual UserDefaults& defaults() = 0;

    /// Stores `json`, the text of an object, as an earlier run would.
    virtual void store(const std::string& json) = 0;
};

/// The tests that all settings pass. The parameter makes the subject.
class UserDefaultsContract
    : public testing::TestWithParam<std::unique_ptr<UserDefaultsSubject> (*)()> {
protected:
    UserDefaults& defaults() { return subject_->defaults(); }
    UserDefaultsSubject& subject() { return *subject_; }

private:
    std::unique_ptr<UserDefaultsSubject> subject_ = GetParam()();
};

TEST_P(UserDefaultsContract, AKeyThatWasNeverSetIsAbsent) {
    EXPECT_EQ(defaults().stringArray("extraFolders"), std::nullopt);
}

TEST_P(UserDefaultsContract, AValueComesBackAsItWasSet) {
    defaults().set("extraFolders", {"/a", "/b c", "/a", "", "/\xE3\x83\xA1\"\\\n"});
    EXPECT_THAT(
        defaults().stringArray("extraFolders"),
        testing::Optional(testing::ElementsAre("/a", "/b c", "/a", "", "/\xE3\x83\xA1\"\\\n")));
}

TEST_P(UserDefaultsContract, AnEmptyListIsNotAnAbsentOne) {
    defaults().set("extraFolders", {});
    EXPECT_THAT(defaults().stringArray("extraFolders"), testing::Optional(testing::IsEmpty()));
}

TEST_P(UserDefaultsContract, AListOfAnEarlierRunIsFound) {
    subject().store(R"({"extraFolders": ["/a", "/b"]})");
    EXPECT_THAT(defaults().stringArray("extraFolders"),
                testing::Optional(testing::ElementsAre("/a", "/b")));
}

TEST_P(UserDefaultsContract, AValueThatIsNotAListOfStringsIsAbsentAndCanBeReplaced) {
    for (const std::string value :
         {R"("/a")", "1", "true", "null", R"({"0": "/a"})", R"(["/a", 1])", R"([["/a"]])"}) {
        subject().store(R"({"extraFolders": )" + value + "}");
        EXPECT_EQ(defaults().stringArray("extraFolders"), std::nullopt) << value;
        defaults().set("extraFolders", {"/b"});
        EXPECT_THAT(defaults().stringArray("extraFolders"),
                    testing::Optional(testing::ElementsAre("/b")))
            << value;
    }
}

TEST_P(UserDefaultsContract, KeysAreIndependent) {
    defaults().set("one", {"1"});
    defaults().set("two", {"2"});
    EXPECT_THAT(defaults().stringArray("one"), testing::Optional(testing::ElementsAre("1")));
}

}  // namespace glintmark::platform
