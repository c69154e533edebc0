// The helper binary on image inputs, bad command lines and artifact
// directories.

#include "blackbox/BlackBoxFixture.h"

namespace kvo::test {
namespace {

TEST_F(HelperBinary, NoArgumentsPrintsTheUsageLineAsJson) {
  ProcessResult r = run({});
  EXPECT_EQ(r.out,
            R"({"error":{"code":"invalid_input","message":"Usage: kem-vision-ocr --input <path> --artifacts <directory> --output-mode <text|layout> --json"},"ok":false})"
            "\n");
  EXPECT_EQ(r.exitStatus, 2);
  EXPECT_EQ(r.err, "");
}

TEST_F(HelperBinary, UnknownArgumentIsNamed) {
  expectFailure(run({"--input", "/x", "--help"}), "invalid_input", "Unknown argument: --help");
}

TEST_F(HelperBinary, RelativePathsAreRefused) {
  expectFailure(run({"--input", "in.png", "--artifacts", "/tmp/a", "--json"}), "invalid_input",
                "Input and artifact paths must be absolute");
}

TEST_F(HelperBinary, MissingInputIsReportedAfterTheDirectoryIsPrepared) {
  expectFailure(runOn(temp_.file("absent.png")), "invalid_input", "Input file is missing");
  EXPECT_TRUE(fs::is_directory(artifacts()));
  EXPECT_TRUE(artifactListing().empty());
}

TEST_F(HelperBinary, DirectoryInputReportsAMissingFile) {
  expectFailure(runOn(temp_.path()), "invalid_input", "Input file is missing");
}

TEST_F(HelperBinary, EmptyInputIsRefused) {
  writeFile(temp_.file("empty.png"), "");
  expectFailure(runOn(temp_.file("empty.png")), "invalid_input", "Input file is empty");
}

TEST_F(HelperBinary, InputThatCannotBeOpenedIsRefused) {
  // Root reads any mode-000 file; a write-only sysfs attribute refuses even root.
  const std::string writeOnly = "/sys/bus/pci/rescan";
  if (!fs::exists(writeOnly)) GTEST_SKIP() << "no write-only sysfs attribute on this machine";
  expectFailure(runOn(writeOnly), "invalid_input", "Input file cannot be read");
}

TEST_F(HelperBinary, TextFileIsAnUnsupportedFormat) {
  expectFailure(runOn(fixture("notes.txt")), "invalid_input", "Unsupported or invalid input format");
}

TEST_F(HelperBinary, GifTiffAndBmpAreRefused) {
  for (const char* name : {"image.gif", "image.tiff", "image.bmp"}) {
    ProcessResult r = runInFreshDirectory(fixture(name));
    expectFailure(r, "invalid_input", "Unsupported or invalid input format");
  }
}

TEST_F(HelperBinary, ImageOverThePixelLimitIsRefusedFromItsHeader) {
  expectFailure(runOn(fixture("oversized-header.png")), "resource_limit_exceeded", "Image pixel count exceeds limit");
}

TEST_F(HelperBinary, DamagedPngsFailCleanlyAndSilently) {
  for (const char* name : {"truncated.png", "corrupt-crc.png"}) {
    ProcessResult r = runInFreshDirectory(fixture(name));
    Json line = singleJsonLine(r);
    EXPECT_EQ(r.exitStatus, 2) << name;
    EXPECT_EQ(line["error"]["code"], "invalid_input") << name;
  }
}

TEST_F(HelperBinary, BlankImageGivesAnEmptyPageAndNothingOnStderr) {
  ProcessResult r = runOn(fixture("blank.png"));
  EXPECT_EQ(r.out,
            R"({"ok":true,"pageCount":1,"pagesPreview":[],"resultPath":"result.json","textPath":"ocr.txt","textPreview":"","truncated":false})"
            "\n");
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(artifactListing(), (std::vector<std::string>{"ocr.txt", "result.json"}));
  EXPECT_EQ(readFile(artifacts() + "/ocr.txt"), "");
  Json page = resultJson()["pages"][0];
  EXPECT_EQ(page, Json::parse(R"({"height":600,"page":1,"regions":[],"text":"","width":800})"));
}

TEST_F(HelperBinary, TinyImagesSucceedSilently) {
  for (const char* name : {"tiny.png", "tiny-black.png"}) {
    ProcessResult r = runInFreshDirectory(fixture(name));
    Json line = singleJsonLine(r);
    EXPECT_EQ(r.exitStatus, 0) << name;
    EXPECT_EQ(line["pageCount"], 1);
  }
}

TEST_F(HelperBinary, PrintedTextIsRecognisedWithPixelPolygons) {
  ProcessResult r = runOn(fixture("hello.png"));
  Json line = singleJsonLine(r);
  ASSERT_EQ(r.exitStatus, 0);
  const std::string text = readFile(artifacts() + "/ocr.txt");
  EXPECT_NE(text.find("Hello World"), std::string::npos) << text;
  EXPECT_NE(text.find("你好世界"), std::string::npos) << text;
  EXPECT_EQ(line["textPreview"], text);
  Json result = resultJson();
  EXPECT_EQ(result["text"], text);
  Json page = result["pages"][0];
  EXPECT_EQ(page["width"], 1400);
  EXPECT_EQ(page["height"], 420);
  ASSERT_GE(page["regions"].size(), 3u);
  for (const Json& region : page["regions"]) {
    EXPECT_GE(region["confidence"].get<double>(), 0.0);
    EXPECT_LE(region["confidence"].get<double>(), 1.0);
    ASSERT_EQ(region["polygon"].size(), 4u);
    for (const Json& point : region["polygon"]) {
      EXPECT_GE(point[0].get<double>(), 0.0);
      EXPECT_LE(point[0].get<double>(), 1400.0);
      EXPECT_GE(point[1].get<double>(), 0.0);
      EXPECT_LE(point[1].get<double>(), 420.0);
    }
  }
  // Reading order: the English first line comes before the Chinese line.
  EXPECT_LT(text.find("Hello"), text.find("你好"));
}

TEST_F(HelperBinary, ResultFileIsOneCompactLineWithSortedKeys) {
  ASSERT_EQ(runOn(fixture("blank.png")).exitStatus, 0);
  const std::string bytes = readFile(artifacts() + "/result.json");
  EXPECT_EQ(bytes.rfind(R"({"metadata":{"elapsedMs":)", 0), 0u) << bytes;
  EXPECT_EQ(bytes.back(), '}');
  EXPECT_EQ(bytes.find('\n'), std::string::npos);
  EXPECT_GT(resultJson()["metadata"]["elapsedMs"].get<double>(), 0.0);
}

TEST_F(HelperBinary, InputStagedInsideTheArtifactsDirectoryIsTolerated) {
  fs::create_directories(artifacts());
  fs::copy_file(fixture("blank.png"), artifacts() + "/input.png");
  ProcessResult r = run({"--input", artifacts() + "/input.png", "--artifacts", artifacts(), "--json"});
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(artifactListing(), (std::vector<std::string>{"input.png", "ocr.txt", "result.json"}));
}

TEST_F(HelperBinary, SecondRunIntoTheSameDirectoryFails) {
  ASSERT_EQ(runOn(fixture("blank.png")).exitStatus, 0);
  expectFailure(runOn(fixture("blank.png")), "invalid_input", "Artifact directory contains unexpected files");
}

TEST_F(HelperBinary, ArtifactsPathThatIsAFileIsRefused) {
  writeFile(artifacts(), "x");
  expectFailure(runOn(fixture("blank.png")), "invalid_input", "Artifact path is not a directory");
}

TEST_F(HelperBinary, KindIsDecidedByContentNotName) {
  ProcessResult r = runOn(fixture("png-named.pdf"));
  EXPECT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(singleJsonLine(r)["pagesPreview"], Json::array());
}

TEST_F(HelperBinary, HostEnvironmentDoesNotChangeTheEngine) {
  ProcessResult r = runOn(fixture("hello.png"), {},
                          {"TESSDATA_PREFIX=/nonexistent", "OMP_THREAD_LIMIT=2", "OMP_NUM_THREADS=2"});
  ASSERT_EQ(r.exitStatus, 0) << r.out;
  EXPECT_EQ(r.err, "");
  EXPECT_NE(readFile(artifacts() + "/ocr.txt").find("Hello"), std::string::npos);
}

}  // namespace
}  // namespace kvo::test
