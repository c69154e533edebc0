// One contract, two implementations: every behaviour the pipeline relies on
// is checked against the real POSIX file system and the in-memory fake the
// unit tests use, so the fake cannot drift from the real thing.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fakes/InMemoryFileSystem.h"
#include "platform/PosixFileSystem.h"
#include "support/TestSupport.h"

namespace {

using kvo::FileSystem;
using kvo::PathState;

// A fresh real directory; contents placed with the ordinary file tools.
struct PosixWorld {
  kvo::test::TempDir temp;
  kvo::PosixFileSystem fs;
  std::string root() const { return temp.path(); }
  void addDirectory(const std::string& path) { ASSERT_EQ(::mkdir(path.c_str(), 0777), 0) << path; }
  void addFile(const std::string& path, const std::string& bytes) { kvo::test::writeFile(path, bytes); }
  std::optional<std::string> contents(const std::string& path) {
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::nullopt;
    return kvo::test::readFile(path);
  }
};

// The fake, with the same layout below a root of its own.
struct InMemoryWorld {
  kvo::fakes::InMemoryFileSystem fs;
  InMemoryWorld() { fs.addDirectory("/contract"); }
  std::string root() const { return "/contract"; }
  void addDirectory(const std::string& path) { fs.addDirectory(path); }
  void addFile(const std::string& path, const std::string& bytes) { fs.addFile(path, bytes); }
  std::optional<std::string> contents(const std::string& path) { return fs.contents(path); }
};

template <typename World>
class FileSystemContract : public ::testing::Test {
 protected:
  World world;
  FileSystem& fs() { return world.fs; }
  std::string at(const std::string& relative) const { return world.root() + "/" + relative; }

  // docs/ with a.txt, a hidden .cache/ holding b, and sub/ holding c.
  void addTree() {
    world.addDirectory(at("docs"));
    world.addFile(at("docs/a.txt"), "alpha");
    world.addDirectory(at("docs/.cache"));
    world.addFile(at("docs/.cache/b"), "beta");
    world.addDirectory(at("docs/sub"));
    world.addFile(at("docs/sub/c"), "gamma");
    world.addFile(at("docs/.hidden"), "");
  }
  std::vector<std::string> sortedListing(const std::string& relative) {
    auto names = fs().listDirectory(at(relative));
    EXPECT_TRUE(names.has_value());
    std::vector<std::string> sorted = names.value_or(std::vector<std::string>{});
    std::sort(sorted.begin(), sorted.end());
    return sorted;
  }
  std::vector<std::string> enumerated(const std::string& relative) {
    std::vector<std::string> visited;
    EXPECT_TRUE(fs().enumerate(at(relative), [&](const std::string& path) { visited.push_back(path); }));
    return visited;
  }
};

using Worlds = ::testing::Types<PosixWorld, InMemoryWorld>;
class WorldNames {
 public:
  template <typename T>
  static std::string GetName(int) {
    return std::is_same_v<T, PosixWorld> ? "Posix" : "InMemory";
  }
};
TYPED_TEST_SUITE(FileSystemContract, Worlds, WorldNames);

TYPED_TEST(FileSystemContract, TellsFilesFromDirectoriesAndMissingPaths) {
  this->addTree();
  EXPECT_EQ(this->fs().pathState(this->at("docs")), PathState::directory);
  EXPECT_EQ(this->fs().pathState(this->at("docs/a.txt")), PathState::notDirectory);
  EXPECT_EQ(this->fs().pathState(this->at("nothing")), PathState::missing);
  const auto file = this->fs().metadata(this->at("docs/a.txt"));
  ASSERT_TRUE(file.has_value());
  EXPECT_EQ(file->isRegularFile, true);
  EXPECT_EQ(file->size, 5u);
  const auto directory = this->fs().metadata(this->at("docs"));
  ASSERT_TRUE(directory.has_value());
  EXPECT_EQ(directory->isRegularFile, false);
  EXPECT_FALSE(this->fs().metadata(this->at("nothing")).has_value());
}

TYPED_TEST(FileSystemContract, ReadsAFileInPiecesUntilItsEnd) {
  this->addTree();
  auto file = this->fs().openForReading(this->at("docs/a.txt"));
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(file->read(3), (std::vector<uint8_t>{'a', 'l', 'p'}));
  EXPECT_EQ(file->read(10), (std::vector<uint8_t>{'h', 'a'}));
  EXPECT_TRUE(file->read(10).empty());
  EXPECT_EQ(this->fs().openForReading(this->at("nothing")), nullptr);
}

TYPED_TEST(FileSystemContract, ListsHiddenEntriesToo) {
  this->addTree();
  EXPECT_EQ(this->sortedListing("docs"), (std::vector<std::string>{".cache", ".hidden", "a.txt", "sub"}));
  EXPECT_TRUE(this->sortedListing("docs/sub") == std::vector<std::string>{"c"});
  EXPECT_FALSE(this->fs().listDirectory(this->at("nothing")).has_value());
  EXPECT_FALSE(this->fs().listDirectory(this->at("docs/a.txt")).has_value());
}

TYPED_TEST(FileSystemContract, EnumeratesDepthFirstPassingOverHiddenEntries) {
  this->addTree();
  std::vector<std::string> visited = this->enumerated("docs");
  // A directory comes before what is inside it.
  const auto position = [&](const std::string& relative) {
    return std::find(visited.begin(), visited.end(), this->at(relative)) - visited.begin();
  };
  EXPECT_LT(position("docs/sub"), position("docs/sub/c"));
  std::sort(visited.begin(), visited.end());
  EXPECT_EQ(visited, (std::vector<std::string>{this->at("docs/a.txt"), this->at("docs/sub"), this->at("docs/sub/c")}));
  // A trailing slash changes nothing.
  std::vector<std::string> again;
  EXPECT_TRUE(this->fs().enumerate(this->at("docs/"), [&](const std::string& p) { again.push_back(p); }));
  std::sort(again.begin(), again.end());
  EXPECT_EQ(again, visited);
}

TYPED_TEST(FileSystemContract, EnumeratesOnlyDirectoriesThatExist) {
  this->addTree();
  int visits = 0;
  EXPECT_FALSE(this->fs().enumerate(this->at("nothing"), [&](const std::string&) { ++visits; }));
  EXPECT_FALSE(this->fs().enumerate(this->at("docs/a.txt"), [&](const std::string&) { ++visits; }));
  EXPECT_EQ(visits, 0);
  this->world.addDirectory(this->at("empty"));
  EXPECT_TRUE(this->enumerated("empty").empty());
}

TYPED_TEST(FileSystemContract, CreatesOneDirectoryOnlyWhereNothingIs) {
  this->addTree();
  EXPECT_TRUE(this->fs().createDirectory(this->at("new")));
  EXPECT_EQ(this->fs().pathState(this->at("new")), PathState::directory);
  EXPECT_FALSE(this->fs().createDirectory(this->at("new")));
  EXPECT_FALSE(this->fs().createDirectory(this->at("docs/a.txt")));
  EXPECT_FALSE(this->fs().createDirectory(this->at("missing/child")));
}

TYPED_TEST(FileSystemContract, CreatesEveryMissingParent) {
  this->addTree();
  EXPECT_TRUE(this->fs().createDirectories(this->at("x/y/z")));
  EXPECT_EQ(this->fs().pathState(this->at("x/y")), PathState::directory);
  EXPECT_EQ(this->fs().pathState(this->at("x/y/z")), PathState::directory);
  EXPECT_TRUE(this->fs().createDirectories(this->at("x/y/z")));  // already there
  EXPECT_FALSE(this->fs().createDirectories(this->at("docs/a.txt/under")));
  EXPECT_FALSE(this->fs().createDirectories(this->at("docs/a.txt")));
}

TYPED_TEST(FileSystemContract, WritesAtomicallyLeavingNothingElseBehind) {
  this->addTree();
  ASSERT_TRUE(this->fs().writeFileAtomically(this->at("sub-out.json"), "{\"a\":1}"));
  EXPECT_EQ(this->world.contents(this->at("sub-out.json")), "{\"a\":1}");
  ASSERT_TRUE(this->fs().writeFileAtomically(this->at("sub-out.json"), "2"));
  EXPECT_EQ(this->world.contents(this->at("sub-out.json")), "2");
  ASSERT_TRUE(this->fs().writeFileAtomically(this->at("docs/sub/empty"), ""));
  EXPECT_EQ(this->world.contents(this->at("docs/sub/empty")), "");
  EXPECT_EQ(this->sortedListing("docs/sub"), (std::vector<std::string>{"c", "empty"}));
}

TYPED_TEST(FileSystemContract, FailsToWriteWhereNoDirectoryIs) {
  this->addTree();
  EXPECT_FALSE(this->fs().writeFileAtomically(this->at("missing/out.json"), "x"));
  EXPECT_FALSE(this->fs().writeFileAtomically(this->at("docs/a.txt/out.json"), "x"));
  EXPECT_EQ(this->fs().pathState(this->at("missing")), PathState::missing);
  EXPECT_EQ(this->world.contents(this->at("docs/a.txt")), "alpha");
  // Nor over a directory.
  EXPECT_FALSE(this->fs().writeFileAtomically(this->at("docs/sub"), "x"));
  EXPECT_EQ(this->fs().pathState(this->at("docs/sub")), PathState::directory);
  EXPECT_EQ(this->sortedListing("docs"), (std::vector<std::string>{".cache", ".hidden", "a.txt", "sub"}));
}

}  // namespace
