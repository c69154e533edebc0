#include <gtest/gtest.h>

#include <string>

#include "fakes/RunnerHarness.h"

namespace kvotest {
namespace {

using kvo::HelperErrorCode;
using namespace kvo::fakes;

constexpr uint64_t kLimit = 1'073'741'824;

class ArtifactSizeGuard : public RunnerHarness {
 protected:
  ArtifactSizeGuard() { fs.addDirectory(kArtifacts); }

  void check(const std::string& excluding = kPdf) { runner.assertArtifactSize(kArtifacts, excluding); }

  ::testing::AssertionResult tooLarge(const std::string& excluding = kPdf) {
    return throwsHelperError([&] { check(excluding); }, HelperErrorCode::resourceLimitExceeded,
                             "OCR artifacts exceed size limit");
  }
};

TEST_F(ArtifactSizeGuard, EmptyDirectoryPasses) { check(); }

TEST_F(ArtifactSizeGuard, FilesTotallingExactlyTheLimitPass) {
  fs.addFileOfSize(artifact("pages/page-0001.png"), kLimit / 2);
  fs.addFileOfSize(artifact("result.json"), kLimit / 2 - 10);
  fs.addFileOfSize(artifact("ocr.txt"), 10);
  check();
}

TEST_F(ArtifactSizeGuard, OneByteMoreFails) {
  fs.addFileOfSize(artifact("pages/page-0001.png"), kLimit / 2);
  fs.addFileOfSize(artifact("result.json"), kLimit / 2 - 10);
  fs.addFileOfSize(artifact("ocr.txt"), 11);
  EXPECT_TRUE(tooLarge());
}

TEST_F(ArtifactSizeGuard, SingleFileOverTheLimitFails) {
  fs.addFileOfSize(artifact("result.json"), kLimit + 1);
  EXPECT_TRUE(tooLarge());
}

TEST_F(ArtifactSizeGuard, StagedInputOfAnySizeIsNotCounted) {
  fs.addFileOfSize(artifact("in.pdf"), 500 * kLimit);
  fs.addFileOfSize(artifact("result.json"), kLimit);
  check(artifact("in.pdf"));
  EXPECT_EQ(fs.count(FsOp::metadata, artifact("in.pdf")), 0u);
}

TEST_F(ArtifactSizeGuard, StagedInputIsRecognisedThroughDotComponents) {
  fs.addFileOfSize(artifact("in.pdf"), 2 * kLimit);
  check("/work/./art/sub/../in.pdf");
}

TEST_F(ArtifactSizeGuard, FileNamedLikeAnInputThatLivesElsewhereIsCounted) {
  fs.addFileOfSize(artifact("doc.pdf"), kLimit + 1);
  EXPECT_TRUE(tooLarge("/in/doc.pdf"));
}

TEST_F(ArtifactSizeGuard, FilesInThePagesDirectoryAreCounted) {
  fs.addFileOfSize(artifact("pages/page-0001.png"), kLimit);
  fs.addFileOfSize(artifact("pages/page-0002.png"), 1);
  EXPECT_TRUE(tooLarge());
}

TEST_F(ArtifactSizeGuard, DirectoriesThemselvesAreNotCounted) {
  fs.addDirectory(artifact("pages/deeper/still"));
  fs.addFileOfSize(artifact("pages/deeper/still/a.png"), kLimit);
  check();
}

TEST_F(ArtifactSizeGuard, HiddenFileOfAnySizeIsNotCountedNorExamined) {
  fs.addFileOfSize(artifact(".cache"), 10 * kLimit);
  fs.addFileOfSize(artifact("result.json"), kLimit);
  check();
  EXPECT_EQ(fs.count(FsOp::metadata, artifact(".cache")), 0u);
}

TEST_F(ArtifactSizeGuard, FilesInsideHiddenDirectoriesAreNeitherCountedNorVisited) {
  fs.addFileOfSize(artifact(".hidden/big.bin"), 10 * kLimit);
  fs.failMetadata(artifact(".hidden/big.bin"));
  check();
  EXPECT_EQ(fs.count(FsOp::metadata, artifact(".hidden/big.bin")), 0u);
}

TEST_F(ArtifactSizeGuard, StopsAtTheFirstEntryThatCrossesTheLimit) {
  fs.addFileOfSize(artifact("a.png"), kLimit);
  fs.addFileOfSize(artifact("b.png"), 1);
  fs.addFileOfSize(artifact("c.png"), 5);
  EXPECT_TRUE(tooLarge());
  EXPECT_EQ(fs.count(FsOp::metadata, artifact("b.png")), 1u);
  EXPECT_EQ(fs.count(FsOp::metadata, artifact("c.png")), 0u);
}

TEST_F(ArtifactSizeGuard, WalkThatCannotStartFailsToEnumerate) {
  fs.failEnumerate(kArtifacts);
  EXPECT_TRUE(throwsHelperError([&] { check(); }, HelperErrorCode::localRuntimeFailed, "Failed to enumerate OCR artifacts"));
}

TEST_F(ArtifactSizeGuard, EntryWhoseMetadataCannotBeReadFailsToBeInspected) {
  fs.addFile(artifact("result.json"), "{}");
  fs.failMetadata(artifact("result.json"));
  EXPECT_TRUE(throwsHelperError([&] { check(); }, HelperErrorCode::localRuntimeFailed, "Failed to inspect OCR artifact"));
}

TEST_F(ArtifactSizeGuard, InspectionFailureOfADirectoryAlsoFails) {
  fs.addDirectory(artifact("pages"));
  fs.failMetadata(artifact("pages"));
  EXPECT_TRUE(throwsHelperError([&] { check(); }, HelperErrorCode::localRuntimeFailed, "Failed to inspect OCR artifact"));
}

TEST_F(ArtifactSizeGuard, EntryThatIsNotARegularFileIsSkipped) {
  fs.addFileOfSize(artifact("fifo"), 5 * kLimit);
  fs.overrideMetadata(artifact("fifo"), kvo::FileMetadata{false, 5 * kLimit});
  fs.addFileOfSize(artifact("odd"), 5 * kLimit);
  fs.overrideMetadata(artifact("odd"), kvo::FileMetadata{std::nullopt, 5 * kLimit});
  check();
}

TEST_F(ArtifactSizeGuard, FileWithoutAKnownSizeIsSkipped) {
  fs.addFileOfSize(artifact("sizeless"), 5 * kLimit);
  fs.overrideMetadata(artifact("sizeless"), kvo::FileMetadata{true, std::nullopt});
  check();
}

TEST_F(ArtifactSizeGuard, EveryVisibleEntryIsExaminedOnce) {
  fs.addFile(artifact("result.json"), "{}");
  fs.addFile(artifact("pages/page-0001.png"), "png");
  check();
  EXPECT_EQ(fs.count(FsOp::metadata, artifact("result.json")), 1u);
  EXPECT_EQ(fs.count(FsOp::metadata, artifact("pages")), 1u);
  EXPECT_EQ(fs.count(FsOp::metadata, artifact("pages/page-0001.png")), 1u);
  EXPECT_EQ(fs.count(FsOp::enumerate, kArtifacts), 1u);
}

}  // namespace
}  // namespace kvotest
