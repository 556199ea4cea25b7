#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "linux/watching/WatchTree.h"

namespace glintmark::platform {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Linked = WatchTree::Linked;

class WatchTreeTest : public testing::Test {
protected:
    void SetUp() override {
        tree_.add(1);
        tree_.setFolderWatch(0, 1);
        put(2, 1, "a");
        put(3, 2, "b");
    }

    void put(int watch, int parent, const std::string& name) {
        EXPECT_TRUE(tree_.add(watch));
        EXPECT_EQ(tree_.link(watch, parent, name), Linked::added);
    }

    WatchTree tree_{{"/folder", "/folder/a/", "/other"}};
};

TEST_F(WatchTreeTest, APathBeginsWithTheFolderAsItWasGiven) {
    EXPECT_THAT(tree_.paths(1), ElementsAre("/folder"));
    EXPECT_THAT(tree_.paths(3), ElementsAre("/folder/a/b"));
    EXPECT_EQ(tree_.anyPath(3), "/folder/a/b");
}

TEST_F(WatchTreeTest, ADirectoryInTwoFoldersHasAPathByEach) {
    tree_.setFolderWatch(1, 2);
    EXPECT_THAT(tree_.paths(2), UnorderedElementsAre("/folder/a/", "/folder/a"));
    EXPECT_THAT(tree_.paths(3), ElementsAre("/folder/a/b"));
    tree_.setFolderWatch(2, 2);
    EXPECT_THAT(tree_.paths(3), UnorderedElementsAre("/folder/a/b", "/other/b"));
}

TEST_F(WatchTreeTest, TheRootCanBeAFolder) {
    WatchTree tree({"/"});
    tree.add(1);
    tree.setFolderWatch(0, 1);
    tree.add(2);
    tree.link(2, 1, "a");
    EXPECT_EQ(tree.anyPath(1), "/");
    EXPECT_EQ(tree.anyPath(2), "/a");
}

TEST_F(WatchTreeTest, AddingAndLinkingAgainChangesNothing) {
    EXPECT_FALSE(tree_.add(3));
    EXPECT_EQ(tree_.link(3, 2, "b"), Linked::present);
    EXPECT_THAT(tree_.paths(3), ElementsAre("/folder/a/b"));
    EXPECT_EQ(tree_.size(), 3U);
}

TEST_F(WatchTreeTest, ADirectoryMayHaveSeveralLinks) {
    put(4, 1, "c");
    EXPECT_EQ(tree_.link(3, 4, "d"), Linked::added);
    put(5, 3, "e");
    EXPECT_THAT(tree_.paths(5), UnorderedElementsAre("/folder/a/b/e", "/folder/c/d/e"));
    tree_.unlink(3, 2, "b");
    EXPECT_THAT(tree_.paths(5), ElementsAre("/folder/c/d/e"));
    EXPECT_EQ(tree_.links(3).size(), 1U);
}

TEST_F(WatchTreeTest, ALinkThatWouldCloseACycleIsRefused) {
    EXPECT_EQ(tree_.link(1, 3, "mirror"), Linked::refused);
    EXPECT_EQ(tree_.link(2, 3, "mirror"), Linked::refused);
    EXPECT_EQ(tree_.link(2, 2, "mirror"), Linked::refused);
    EXPECT_THAT(tree_.paths(3), ElementsAre("/folder/a/b"));
}

TEST_F(WatchTreeTest, ACycleThroughASecondLinkIsRefused) {
    put(4, 1, "c");
    EXPECT_EQ(tree_.link(3, 4, "d"), Linked::added);
    EXPECT_EQ(tree_.link(4, 3, "e"), Linked::refused);
}

TEST_F(WatchTreeTest, DirectoriesBelowARemovedOneHaveNoPathUntilTheyAreLinkedAgain) {
    tree_.remove(2);
    EXPECT_FALSE(tree_.contains(2));
    EXPECT_THAT(tree_.paths(3), IsEmpty());
    EXPECT_EQ(tree_.anyPath(3), "");
    put(4, 1, "a");
    EXPECT_EQ(tree_.link(3, 4, "b"), Linked::added);
    EXPECT_EQ(tree_.anyPath(3), "/folder/a/b");
}

TEST_F(WatchTreeTest, WithoutItsFolderADirectoryHasNoPath) {
    tree_.setFolderWatch(0, WatchTree::noWatch);
    EXPECT_THAT(tree_.paths(3), IsEmpty());
    tree_.setFolderWatch(0, 1);
    tree_.remove(1);
    EXPECT_EQ(tree_.folderWatch(0), WatchTree::noWatch);
}

TEST_F(WatchTreeTest, OneOfTwoSpellingsOfAFolderCanBeReleased) {
    tree_.setFolderWatch(2, 1);
    tree_.setFolderWatch(0, WatchTree::noWatch);
    EXPECT_THAT(tree_.paths(3), ElementsAre("/other/a/b"));
}

TEST_F(WatchTreeTest, ADirectoryBelowNoFolderIsNotReachable) {
    put(4, 3, "c");
    put(5, 1, "d");
    tree_.link(4, 5, "second");
    tree_.unlinkAll(2);
    tree_.markReachable();
    EXPECT_THAT(tree_.unseen(), UnorderedElementsAre(2, 3));
    EXPECT_THAT(tree_.paths(4), ElementsAre("/folder/d/second"));
}

TEST_F(WatchTreeTest, MarksAreIndependent) {
    tree_.setReported(2, true);
    tree_.setSeen(3, true);
    EXPECT_TRUE(tree_.isReported(2));
    EXPECT_FALSE(tree_.isSeen(2));
    EXPECT_FALSE(tree_.isReported(3));
    EXPECT_THAT(tree_.unseen(), UnorderedElementsAre(1, 2));
    tree_.setAllUnseen();
    EXPECT_TRUE(tree_.isReported(2));
    EXPECT_EQ(tree_.unseen().size(), 3U);
}

TEST_F(WatchTreeTest, NamesOfAnyBytesAndLengthsAreKept) {
    const std::string longest(255, '\xFF');
    put(4, 1, longest);
    put(5, 4, "\n%s\"");
    EXPECT_EQ(tree_.anyPath(5), "/folder/" + longest + "/\n%s\"");
}

TEST_F(WatchTreeTest, NamesSurviveWhenDroppedNamesAreFreed) {
    put(4, 1, "kept");
    EXPECT_EQ(tree_.link(4, 2, "alias"), Linked::added);
    const std::string longName(200, 'x');
    for (int i = 0; i < 5000; ++i) {  // a megabyte of names, all of them dropped
        put(5, 1, longName + std::to_string(i));
        tree_.remove(5);
    }
    EXPECT_THAT(tree_.paths(4), UnorderedElementsAre("/folder/kept", "/folder/a/alias"));
    EXPECT_EQ(tree_.anyPath(3), "/folder/a/b");
}

TEST_F(WatchTreeTest, ManyDirectoriesAreDistinguished) {
    for (int i = 10; i < 5000; ++i) {
        put(i, i < 20 ? 1 : i / 2, std::to_string(i));
    }
    EXPECT_EQ(tree_.anyPath(4999), "/folder/19/39/78/156/312/624/1249/2499/4999");
    for (int i = 10; i < 5000; ++i) {
        tree_.remove(i);
    }
    EXPECT_EQ(tree_.size(), 3U);
}

}  // namespace
}  // namespace glintmark::platform
