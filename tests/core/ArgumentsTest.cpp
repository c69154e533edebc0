#include "VisionOcrCore/Arguments.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fakes/Expectations.h"

namespace kvotest {
namespace {

using kvo::HelperArguments;
using kvo::HelperError;
using kvo::HelperErrorCode;
using kvo::OcrOutputMode;
using Args = std::vector<std::string>;

const std::string kUsage =
    "Usage: kem-vision-ocr --input <path> --artifacts <directory> --output-mode <text|layout> --json";

class Arguments : public ::testing::Test {
 protected:
  static HelperArguments parse(const Args& args) { return HelperArguments::parse(args); }

  // Asserts that `args` are refused as invalid input with exactly `message`.
  static ::testing::AssertionResult refused(const Args& args, const std::string& message) {
    return kvo::fakes::throwsHelperError([&] { HelperArguments::parse(args); }, HelperErrorCode::invalidInput,
                                         message);
  }
};

// ---- accepted command lines ---------------------------------------------------

TEST_F(Arguments, AllOptionsInDocumentedOrder) {
  EXPECT_EQ(parse({"--input", "/in/a.png", "--artifacts", "/out", "--output-mode", "text", "--json"}),
            (HelperArguments{"/in/a.png", "/out", OcrOutputMode::text}));
}

TEST_F(Arguments, JsonFirstThenPathsDefaultsToLayout) {
  EXPECT_EQ(parse({"--json", "--input", "/in/a.png", "--artifacts", "/out"}),
            (HelperArguments{"/in/a.png", "/out", OcrOutputMode::layout}));
}

TEST_F(Arguments, OutputModeLayoutSpelledOut) {
  EXPECT_EQ(parse({"--output-mode", "layout", "--artifacts", "/out", "--json", "--input", "/a"}).outputMode,
            OcrOutputMode::layout);
}

TEST_F(Arguments, PathWithParentStepsIsKeptUnchanged) {
  const HelperArguments parsed = parse({"--input", "/in/../x/./a.png", "--artifacts", "/out/../art/", "--json"});
  EXPECT_EQ(parsed.input, "/in/../x/./a.png");
  EXPECT_EQ(parsed.artifacts, "/out/../art/");
}

TEST_F(Arguments, ValueWithSingleLeadingDashIsTakenAsValue) {
  // Taken as the mode's value (and then refused as a mode), not as a missing value.
  EXPECT_TRUE(refused({"--input", "/a", "--artifacts", "/b", "--json", "--output-mode", "-text"},
                      "Output mode must be text or layout"));
}

TEST_F(Arguments, OptionNameWithoutDashesIsTakenAsValue) {
  // "json" is the input path here, so the only fault left is that it is relative.
  EXPECT_TRUE(refused({"--input", "json", "--artifacts", "/b", "--json"}, "Input and artifact paths must be absolute"));
}

TEST_F(Arguments, NonExistentPathsAreNotCheckedHere) {
  EXPECT_EQ(parse({"--input", "/no/such/file", "--artifacts", "/no/such/dir", "--json"}).input, "/no/such/file");
}

// ---- the usage line ---------------------------------------------------------------

TEST_F(Arguments, EmptyListGivesUsageLine) { EXPECT_TRUE(refused({}, kUsage)); }

TEST_F(Arguments, UsageLineConstantIsExact) { EXPECT_EQ(std::string(kvo::kUsageLine), kUsage); }

TEST_F(Arguments, MissingJsonGivesUsageLine) {
  EXPECT_TRUE(refused({"--input", "/a", "--artifacts", "/b", "--output-mode", "text"}, kUsage));
}

TEST_F(Arguments, MissingInputGivesUsageLine) { EXPECT_TRUE(refused({"--artifacts", "/b", "--json"}, kUsage)); }

TEST_F(Arguments, MissingArtifactsGivesUsageLine) { EXPECT_TRUE(refused({"--input", "/a", "--json"}, kUsage)); }

TEST_F(Arguments, JsonAloneGivesUsageLine) { EXPECT_TRUE(refused({"--json"}, kUsage)); }

TEST_F(Arguments, UsageLineComesBeforeTheAbsolutenessCheck) {
  EXPECT_TRUE(refused({"--input", "relative.png", "--json"}, kUsage));
}

// ---- output mode ------------------------------------------------------------------

TEST_F(Arguments, CapitalisedOutputModeIsRefused) {
  EXPECT_TRUE(refused({"--input", "/a", "--artifacts", "/b", "--output-mode", "Text", "--json"},
                      "Output mode must be text or layout"));
}

TEST_F(Arguments, UnknownOutputModeIsRefused) {
  EXPECT_TRUE(refused({"--output-mode", "fast"}, "Output mode must be text or layout"));
}

TEST_F(Arguments, InvalidOutputModeStopsTheWalkAtOnce) {
  EXPECT_TRUE(refused({"--output-mode", "LAYOUT", "stray", "--json", "--json"}, "Output mode must be text or layout"));
}

// ---- missing values ---------------------------------------------------------------

TEST_F(Arguments, InputAsLastArgumentMissesItsValue) {
  EXPECT_TRUE(refused({"--json", "--artifacts", "/b", "--input"}, "Missing value for --input"));
}

TEST_F(Arguments, InputFollowedByJsonMissesItsValue) {
  EXPECT_TRUE(refused({"--input", "--json", "--artifacts", "/b"}, "Missing value for --input"));
}

TEST_F(Arguments, InputFollowedByEmptyArgumentMissesItsValue) {
  EXPECT_TRUE(refused({"--input", "", "--artifacts", "/b", "--json"}, "Missing value for --input"));
}

TEST_F(Arguments, ArtifactsMissesItsValue) {
  EXPECT_TRUE(refused({"--input", "/a", "--artifacts"}, "Missing value for --artifacts"));
  EXPECT_TRUE(refused({"--artifacts", "--input", "/a"}, "Missing value for --artifacts"));
}

TEST_F(Arguments, OutputModeMissesItsValue) {
  EXPECT_TRUE(refused({"--input", "/a", "--artifacts", "/b", "--json", "--output-mode"},
                      "Missing value for --output-mode"));
  EXPECT_TRUE(refused({"--output-mode", "--json"}, "Missing value for --output-mode"));
}

TEST_F(Arguments, EmptyOutputModeIsAMissingValueNotABadMode) {
  EXPECT_TRUE(refused({"--output-mode", "", "--json"}, "Missing value for --output-mode"));
}

// ---- duplicates ---------------------------------------------------------------------

TEST_F(Arguments, SecondInputIsADuplicate) {
  EXPECT_TRUE(refused({"--input", "/a", "--input", "/c", "--artifacts", "/b", "--json"}, "Duplicate argument: --input"));
}

TEST_F(Arguments, SecondArtifactsIsADuplicate) {
  EXPECT_TRUE(refused({"--artifacts", "/b", "--artifacts", "/c"}, "Duplicate argument: --artifacts"));
}

TEST_F(Arguments, SecondOutputModeIsADuplicate) {
  EXPECT_TRUE(refused({"--output-mode", "text", "--output-mode", "text"}, "Duplicate argument: --output-mode"));
}

TEST_F(Arguments, SecondJsonIsADuplicateEvenWithRequiredOptionsMissing) {
  EXPECT_TRUE(refused({"--json", "--json"}, "Duplicate argument: --json"));
}

TEST_F(Arguments, DuplicateInputAtTheEndIsReportedBeforeItsMissingValue) {
  EXPECT_TRUE(refused({"--input", "/a", "--artifacts", "/b", "--json", "--input"}, "Duplicate argument: --input"));
}

TEST_F(Arguments, DuplicateOutputModeIsReportedBeforeItsValueIsLookedAt) {
  EXPECT_TRUE(refused({"--output-mode", "text", "--output-mode"}, "Duplicate argument: --output-mode"));
  EXPECT_TRUE(refused({"--output-mode", "text", "--output-mode", "bogus"}, "Duplicate argument: --output-mode"));
}

// ---- unknown arguments ----------------------------------------------------------------

TEST_F(Arguments, StrayWordIsUnknown) {
  EXPECT_TRUE(refused({"--input", "/a", "stray", "--artifacts", "/b", "--json"}, "Unknown argument: stray"));
}

TEST_F(Arguments, HelpIsUnknown) { EXPECT_TRUE(refused({"--help"}, "Unknown argument: --help")); }

TEST_F(Arguments, ShortFormIsUnknown) { EXPECT_TRUE(refused({"-i", "/a"}, "Unknown argument: -i")); }

TEST_F(Arguments, OptionJoinedToItsValueIsUnknown) {
  EXPECT_TRUE(refused({"--input=/a", "--artifacts", "/b", "--json"}, "Unknown argument: --input=/a"));
}

TEST_F(Arguments, OptionInOtherLetterCaseIsUnknown) {
  EXPECT_TRUE(refused({"--JSON"}, "Unknown argument: --JSON"));
  EXPECT_TRUE(refused({"--Input", "/a"}, "Unknown argument: --Input"));
}

TEST_F(Arguments, UnknownArgumentIsQuotedExactlyAsGiven) {
  EXPECT_TRUE(refused({"  spaced ü "}, "Unknown argument:   spaced ü "));
  EXPECT_TRUE(refused({""}, "Unknown argument: "));
}

// ---- the first fault wins -------------------------------------------------------------

TEST_F(Arguments, StrayWordBeforeDuplicateWins) {
  EXPECT_TRUE(refused({"stray", "--json", "--json"}, "Unknown argument: stray"));
}

TEST_F(Arguments, DuplicateBeforeStrayWordWins) {
  EXPECT_TRUE(refused({"--json", "--json", "stray"}, "Duplicate argument: --json"));
}

TEST_F(Arguments, StrayWordAfterARelativePathWinsOverAbsoluteness) {
  EXPECT_TRUE(refused({"--input", "rel.png", "--artifacts", "/b", "--json", "stray"}, "Unknown argument: stray"));
}

// ---- absoluteness -----------------------------------------------------------------------

TEST_F(Arguments, RelativeInputIsRefusedOnceEverythingElseParsed) {
  EXPECT_TRUE(refused({"--input", "in/a.png", "--artifacts", "/b", "--output-mode", "text", "--json"},
                      "Input and artifact paths must be absolute"));
}

TEST_F(Arguments, RelativeArtifactsIsRefused) {
  EXPECT_TRUE(refused({"--input", "/a", "--artifacts", "out", "--json"}, "Input and artifact paths must be absolute"));
}

TEST_F(Arguments, TildeAndDotPathsAreNotExpanded) {
  EXPECT_TRUE(refused({"--input", "~/a.png", "--artifacts", "/b", "--json"}, "Input and artifact paths must be absolute"));
  EXPECT_TRUE(refused({"--input", "/a", "--artifacts", "./out", "--json"}, "Input and artifact paths must be absolute"));
}

}  // namespace
}  // namespace kvotest
