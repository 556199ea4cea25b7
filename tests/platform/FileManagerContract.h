#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/FileManager.h"

namespace glintmark::platform {

/// A file manager under test, with an empty folder.
class FileManagerSubject {
public:
    virtual ~FileManagerSubject() = default;

    virtual FileManager& manager() = 0;
    virtual std::string folder() = 0;
    virtual void createFile(const std::string& path, const std::string& bytes) = 0;
    virtual void createDirectory(const std::string& path) = 0;
    virtual void createLink(const std::string& path, const std::string& target) = 0;
    virtual void remove(const std::string& path) = 0;
};

/// The tests that every file manager passes. The parameter makes the subject.
class FileManagerContract
    : public testing::TestWithParam<std::unique_ptr<FileManagerSubject> (*)()> {
protected:
    FileManager& manager() { return subject_->manager(); }
    FileManagerSubject& subject() { return *subject_; }
    std::string path(const std::string& name) { return subject_->folder() + "/" + name; }

    std::vector<std::string> names(const std::string& directory) {
        std::vector<std::string> found;
        EXPECT_TRUE(manager().contentsOfDirectory(
            directory, [&](std::string_view name) { found.emplace_back(name); }));
        return found;
    }

    bool canList(const std::string& directory) {
        return manager().contentsOfDirectory(directory, [](std::string_view) {});
    }

private:
    std::unique_ptr<FileManagerSubject> subject_ = GetParam()();
};

TEST_P(FileManagerContract, TheHomeDirectoryIsAbsoluteWithoutATrailingSlash) {
    const auto home = manager().homeDirectoryForCurrentUser();
    EXPECT_TRUE(home.starts_with('/'));
    EXPECT_TRUE(home == "/" || !home.ends_with('/'));
}

TEST_P(FileManagerContract, ListsFilesAndDirectoriesAlike) {
    subject().createFile(path("a.webloc"), "");
    subject().createDirectory(path("b.webloc"));
    subject().createFile(path("b.webloc/inner"), "");
    subject().createFile(path(".hidden"), "");
    EXPECT_THAT(names(subject().folder()),
                testing::UnorderedElementsAre("a.webloc", "b.webloc", ".hidden"));
}

TEST_P(FileManagerContract, ListsAFolderWrittenWithATrailingSlash) {
    subject().createFile(path("a"), "");
    EXPECT_THAT(names(subject().folder() + "/"), testing::ElementsAre("a"));
}

TEST_P(FileManagerContract, AnEmptyFolderIsListed) {
    EXPECT_THAT(names(subject().folder()), testing::IsEmpty());
}

TEST_P(FileManagerContract, OnlyDirectoriesAreListed) {
    subject().createFile(path("file"), "");
    EXPECT_FALSE(canList(path("missing")));
    EXPECT_FALSE(canList(path("file")));
    EXPECT_FALSE(canList(""));
}

TEST_P(FileManagerContract, FilesAndDirectoriesExistUntilTheyAreRemoved) {
    subject().createFile(path("file"), "");
    subject().createDirectory(path("directory"));
    EXPECT_TRUE(manager().fileExists(path("file")));
    EXPECT_TRUE(manager().fileExists(path("directory")));
    EXPECT_FALSE(manager().fileExists(path("missing")));
    subject().remove(path("file"));
    EXPECT_FALSE(manager().fileExists(path("file")));
}

TEST_P(FileManagerContract, EntriesAreThereUntilTheyAreRemoved) {
    subject().createFile(path("file"), "");
    subject().createDirectory(path("directory"));
    subject().createLink(path("link"), path("missing"));
    EXPECT_EQ(manager().entry(path("file")), Entry::other);
    EXPECT_EQ(manager().entry(path("directory")), Entry::other);
    EXPECT_EQ(manager().entry(path("link")), Entry::link);
    EXPECT_FALSE(manager().fileExists(path("link")));
    EXPECT_EQ(manager().entry(path("missing")), Entry::none);
    subject().remove(path("file"));
    EXPECT_EQ(manager().entry(path("file")), Entry::none);
}

TEST_P(FileManagerContract, ListsSeveralDirectoriesEachOnce) {
    subject().createFile(path("one/a.x"), "");
    subject().createFile(path("one/b.y"), "");
    subject().createFile(path("two/c.x"), "");
    const std::vector<std::string> directories{path("one"), path("two"), path("missing"), ""};
    const auto listings = manager().beginListings(directories, ".x", std::chrono::minutes(1));
    std::vector<std::string> found;
    for (const auto& directory : directories) {
        EXPECT_TRUE(
            listings->collect(directory, [&](std::string_view name) { found.emplace_back(name); }));
    }
    EXPECT_THAT(found, testing::ElementsAre("a.x", "c.x"));
}

TEST_P(FileManagerContract, ReadsAFileAndItsSize) {
    const std::string bytes("a\0\xFFz", 4);
    subject().createFile(path("file"), bytes);
    EXPECT_EQ(manager().contents(path("file")), bytes);
    EXPECT_EQ(manager().fileSize(path("file")), 4U);
}

TEST_P(FileManagerContract, AnEmptyFileHasEmptyContents) {
    subject().createFile(path("file"), "");
    EXPECT_EQ(manager().contents(path("file")), "");
    EXPECT_EQ(manager().fileSize(path("file")), 0U);
}

TEST_P(FileManagerContract, TellsWhichFileWasRead) {
    subject().createFile(path("one"), "same");
    subject().createFile(path("two"), "same");
    FileIdentity one;
    FileIdentity again;
    FileIdentity two;
    EXPECT_EQ(manager().contents(path("one"), &one), "same");
    EXPECT_EQ(manager().contents(path("one"), &again), "same");
    EXPECT_EQ(manager().contents(path("two"), &two), "same");
    EXPECT_EQ(one, again);
    EXPECT_EQ(one.place, path("one"));
    EXPECT_FALSE(one.isThroughLink);
    EXPECT_EQ(one.device, two.device);
    EXPECT_NE(one.inode, two.inode);
}

TEST_P(FileManagerContract, AMissingFileAndADirectoryHaveNoContents) {
    EXPECT_EQ(manager().contents(path("missing")), std::nullopt);
    EXPECT_EQ(manager().fileSize(path("missing")), 0U);
    EXPECT_EQ(manager().contents(subject().folder()), std::nullopt);
    EXPECT_EQ(manager().fileSize(subject().folder()), 0U);
}

}  // namespace glintmark::platform
