#include "VisionOcrCore/Paths.h"

#include <gtest/gtest.h>

namespace kvo {
namespace {

TEST(Paths, StandardizeRemovesDotComponentsAndFoldsParents) {
  EXPECT_EQ(standardizePath("/a/./b/../c/"), "/a/c");
  EXPECT_EQ(standardizePath("/a//b"), "/a/b");
  EXPECT_EQ(standardizePath("/.."), "/");
  EXPECT_EQ(standardizePath("/"), "/");
}

TEST(Paths, ParentDropsTheLastComponent) {
  EXPECT_EQ(parentPath("/a/b/c.png"), "/a/b");
  EXPECT_EQ(parentPath("/c.png"), "/");
}

TEST(Paths, LastComponentIgnoresTrailingSlashes) {
  EXPECT_EQ(lastPathComponent("/a/b/c.png"), "c.png");
  EXPECT_EQ(lastPathComponent("/a/b/"), "b");
}

TEST(Paths, JoinUsesExactlyOneSlash) {
  EXPECT_EQ(joinPath("/art/", "pages/page-0001.png"), "/art/pages/page-0001.png");
  EXPECT_EQ(joinPath("/art", "result.json"), "/art/result.json");
  EXPECT_EQ(joinPath("/", "x"), "/x");
}

}  // namespace
}  // namespace kvo
