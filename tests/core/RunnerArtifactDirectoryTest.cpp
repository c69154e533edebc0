#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/RunnerHarness.h"

namespace kvotest {
namespace {

using kvo::HelperErrorCode;
using namespace kvo::fakes;

class ArtifactDirectory : public RunnerHarness {
 protected:
  void prepare(const std::string& artifacts = kArtifacts, const std::string& input = kImage) {
    runner.prepareArtifactDirectory(artifacts, input);
  }

  ::testing::AssertionResult refused(const std::string& message, const std::string& artifacts = kArtifacts,
                                     const std::string& input = kImage) {
    return throwsHelperError([&] { prepare(artifacts, input); }, HelperErrorCode::invalidInput, message);
  }

  ::testing::AssertionResult holdsUnexpectedFiles(const std::string& input = kImage) {
    return refused("Artifact directory contains unexpected files", kArtifacts, input);
  }

  size_t changes() const {
    return fs.count(FsOp::createDirectories) + fs.count(FsOp::createDirectory) + fs.count(FsOp::writeFileAtomically);
  }
};

// ---- a missing directory ------------------------------------------------------------------------

TEST_F(ArtifactDirectory, MissingPathIsCreatedWithAllItsParents) {
  prepare("/new/a/b");
  EXPECT_TRUE(fs.isDirectory("/new"));
  EXPECT_TRUE(fs.isDirectory("/new/a"));
  EXPECT_TRUE(fs.isDirectory("/new/a/b"));
  EXPECT_EQ(fs.count(FsOp::createDirectories, "/new/a/b"), 1u);
}

TEST_F(ArtifactDirectory, FreshlyCreatedDirectoryIsNotListed) {
  prepare();
  EXPECT_EQ(fs.count(FsOp::listDirectory), 0u);
}

TEST_F(ArtifactDirectory, DirectoryThatCannotBeCreatedIsReported) {
  fs.failCreateDirectory(kArtifacts);
  EXPECT_TRUE(refused("Artifact directory cannot be created"));
}

TEST_F(ArtifactDirectory, ParentThatIsAFileMakesCreationFail) {
  fs.addFile("/work", "x");
  EXPECT_TRUE(refused("Artifact directory cannot be created"));
}

// ---- an existing directory -----------------------------------------------------------------------

TEST_F(ArtifactDirectory, ExistingEmptyDirectoryPassesUnchanged) {
  fs.addDirectory(kArtifacts);
  prepare();
  EXPECT_EQ(changes(), 0u);
  EXPECT_TRUE(fs.listTree(kArtifacts).empty());
}

TEST_F(ArtifactDirectory, DirectoryHoldingOnlyTheStagedInputPasses) {
  fs.addFile(artifact("in.png"), "x");
  prepare(kArtifacts, artifact("in.png"));
  EXPECT_EQ(changes(), 0u);
}

TEST_F(ArtifactDirectory, StagedInputWithAnotherFileFails) {
  fs.addFile(artifact("in.png"), "x");
  fs.addFile(artifact("other.png"), "y");
  EXPECT_TRUE(holdsUnexpectedFiles(artifact("in.png")));
}

TEST_F(ArtifactDirectory, StagedInputWithAHiddenFileFails) {
  fs.addFile(artifact("in.png"), "x");
  fs.addFile(artifact(".DS_Store"), "y");
  EXPECT_TRUE(holdsUnexpectedFiles(artifact("in.png")));
}

TEST_F(ArtifactDirectory, HiddenFileAloneFails) {
  fs.addFile(artifact(".hidden"), "");
  EXPECT_TRUE(holdsUnexpectedFiles());
}

TEST_F(ArtifactDirectory, SubdirectoryFails) {
  fs.addDirectory(artifact("sub"));
  EXPECT_TRUE(holdsUnexpectedFiles());
}

TEST_F(ArtifactDirectory, FileNamedLikeTheInputFailsWhenTheInputLivesElsewhere) {
  fs.addFile(artifact("photo.png"), "x");
  EXPECT_TRUE(holdsUnexpectedFiles("/in/photo.png"));
}

TEST_F(ArtifactDirectory, InputInASubdirectoryOfTheArtifactsIsNotTolerated) {
  fs.addFile(artifact("sub/in.png"), "x");
  EXPECT_TRUE(holdsUnexpectedFiles(artifact("sub/in.png")));
}

TEST_F(ArtifactDirectory, DotComponentInTheInputPathIsTheSamePlace) {
  fs.addFile(artifact("in.png"), "x");
  prepare(kArtifacts, "/work/art/./in.png");
}

TEST_F(ArtifactDirectory, DotComponentAndTrailingSlashInTheArtifactsPathAreTheSamePlace) {
  fs.addFile(artifact("in.png"), "x");
  prepare("/work/./art/", "/work/art/in.png");
}

TEST_F(ArtifactDirectory, ParentStepInTheInputPathIsTheSamePlace) {
  fs.addFile(artifact("in.png"), "x");
  fs.addDirectory("/work/other");
  prepare(kArtifacts, "/work/other/../art/in.png");
}

TEST_F(ArtifactDirectory, OnlyTheStagedInputsOwnNameIsTolerated) {
  fs.addFile(artifact("other.png"), "x");
  EXPECT_TRUE(holdsUnexpectedFiles(artifact("in.png")));
}

TEST_F(ArtifactDirectory, LeftoverResultFileFails) {
  fs.addFile(artifact("result.json"), "{}");
  EXPECT_TRUE(holdsUnexpectedFiles());
}

TEST_F(ArtifactDirectory, LeftoverTextFileAndPagesDirectoryFail) {
  fs.addFile(artifact("ocr.txt"), "");
  EXPECT_TRUE(holdsUnexpectedFiles());
  fs.addDirectory("/work/art2/pages");
  EXPECT_TRUE(refused("Artifact directory contains unexpected files", "/work/art2"));
}

TEST_F(ArtifactDirectory, NothingFoundThereIsDeletedOrChanged) {
  fs.addFile(artifact("result.json"), "{}");
  EXPECT_TRUE(holdsUnexpectedFiles());
  EXPECT_EQ(changes(), 0u);
  EXPECT_EQ(fs.contents(artifact("result.json")), "{}");
}

TEST_F(ArtifactDirectory, RegularFileAtThePathIsNotADirectory) {
  fs.addFile(kArtifacts, "x");
  EXPECT_TRUE(refused("Artifact path is not a directory"));
  EXPECT_EQ(changes(), 0u);
}

TEST_F(ArtifactDirectory, UnlistableDirectoryCannotBeRead) {
  fs.addDirectory(kArtifacts);
  fs.failListing(kArtifacts);
  EXPECT_TRUE(refused("Artifact directory cannot be read"));
}

TEST_F(ArtifactDirectory, SecondRunIntoTheSameDirectoryFails) {
  imageInput();
  run(kImage);
  EXPECT_TRUE(runRefused(kImage, HelperErrorCode::invalidInput, "Artifact directory contains unexpected files"));
}

TEST_F(ArtifactDirectory, RunCreatesAMissingDirectoryAndGoesOn) {
  imageInput();
  engine.respondWithText("x");
  run(kImage);
  EXPECT_EQ(fs.listTree("/work"), (std::vector<std::string>{"art/", "art/ocr.txt", "art/result.json"}));
}

}  // namespace
}  // namespace kvotest
