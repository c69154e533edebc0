#include "VisionOcrCore/Models.h"

#include <gtest/gtest.h>

#include <string>

#include "VisionOcrCore/Json.h"
#include "fakes/Expectations.h"

namespace kvotest {
namespace {

using kvo::HelperError;
using kvo::HelperErrorCode;
using kvo::OcrOutputMode;

class Models : public ::testing::Test {};

TEST_F(Models, ErrorCodesHaveTheirSnakeCaseWireValuesInOrder) {
  EXPECT_EQ(kvo::rawValue(HelperErrorCode::invalidInput), "invalid_input");
  EXPECT_EQ(kvo::rawValue(HelperErrorCode::encryptedPdf), "encrypted_pdf");
  EXPECT_EQ(kvo::rawValue(HelperErrorCode::resourceLimitExceeded), "resource_limit_exceeded");
  EXPECT_EQ(kvo::rawValue(HelperErrorCode::localRuntimeUnavailable), "local_runtime_unavailable");
  EXPECT_EQ(kvo::rawValue(HelperErrorCode::localRuntimeTimeout), "local_runtime_timeout");
  EXPECT_EQ(kvo::rawValue(HelperErrorCode::localRuntimeFailed), "local_runtime_failed");
}

TEST_F(Models, ErrorCodeOrdinalsFollowThePublishedOrder) {
  EXPECT_EQ(static_cast<int>(HelperErrorCode::invalidInput), 0);
  EXPECT_EQ(static_cast<int>(HelperErrorCode::encryptedPdf), 1);
  EXPECT_EQ(static_cast<int>(HelperErrorCode::resourceLimitExceeded), 2);
  EXPECT_EQ(static_cast<int>(HelperErrorCode::localRuntimeUnavailable), 3);
  EXPECT_EQ(static_cast<int>(HelperErrorCode::localRuntimeTimeout), 4);
  EXPECT_EQ(static_cast<int>(HelperErrorCode::localRuntimeFailed), 5);
}

TEST_F(Models, EveryWireValueConstructsItsCode) {
  for (auto code : {HelperErrorCode::invalidInput, HelperErrorCode::encryptedPdf,
                    HelperErrorCode::resourceLimitExceeded, HelperErrorCode::localRuntimeUnavailable,
                    HelperErrorCode::localRuntimeTimeout, HelperErrorCode::localRuntimeFailed}) {
    EXPECT_EQ(kvo::helperErrorCodeFromRawValue(kvo::rawValue(code)), code);
  }
}

TEST_F(Models, CapitalisedWireValueDoesNotConstructACode) {
  EXPECT_EQ(kvo::helperErrorCodeFromRawValue("INVALID_INPUT"), std::nullopt);
  EXPECT_EQ(kvo::helperErrorCodeFromRawValue("Invalid_input"), std::nullopt);
  EXPECT_EQ(kvo::helperErrorCodeFromRawValue("invalid_input"), HelperErrorCode::invalidInput);
}

TEST_F(Models, CaseNameAndOtherTextDoNotConstructACode) {
  EXPECT_EQ(kvo::helperErrorCodeFromRawValue("invalidInput"), std::nullopt);
  EXPECT_EQ(kvo::helperErrorCodeFromRawValue(""), std::nullopt);
  EXPECT_EQ(kvo::helperErrorCodeFromRawValue("invalid_input "), std::nullopt);
}

TEST_F(Models, OutputModeRawValuesAreTextAndLayout) {
  EXPECT_EQ(kvo::rawValue(OcrOutputMode::text), "text");
  EXPECT_EQ(kvo::rawValue(OcrOutputMode::layout), "layout");
  EXPECT_EQ(static_cast<int>(OcrOutputMode::text), 0);
  EXPECT_EQ(static_cast<int>(OcrOutputMode::layout), 1);
}

TEST_F(Models, OutputModeConstructsOnlyFromExactRawValues) {
  EXPECT_EQ(kvo::outputModeFromRawValue("text"), OcrOutputMode::text);
  EXPECT_EQ(kvo::outputModeFromRawValue("layout"), OcrOutputMode::layout);
  EXPECT_EQ(kvo::outputModeFromRawValue("Text"), std::nullopt);
  EXPECT_EQ(kvo::outputModeFromRawValue("LAYOUT"), std::nullopt);
  EXPECT_EQ(kvo::outputModeFromRawValue(""), std::nullopt);
}

TEST_F(Models, HelperErrorComparesCodeAndMessage) {
  const HelperError error(HelperErrorCode::invalidInput, "Input file is missing");
  EXPECT_EQ(error, HelperError(HelperErrorCode::invalidInput, "Input file is missing"));
  EXPECT_FALSE(error == HelperError(HelperErrorCode::localRuntimeFailed, "Input file is missing"));
  EXPECT_FALSE(error == HelperError(HelperErrorCode::invalidInput, "Input file is empty"));
  EXPECT_STREQ(error.what(), "Input file is missing");
}

TEST_F(Models, FailurePayloadCopiesCodeAndMessageAndIsNotOk) {
  const kvo::FailurePayload payload(HelperError(HelperErrorCode::encryptedPdf, "PDF requires a password"));
  EXPECT_FALSE(payload.ok);
  EXPECT_EQ(payload.error.code, HelperErrorCode::encryptedPdf);
  EXPECT_EQ(payload.error.message, "PDF requires a password");
}

TEST_F(Models, HelperErrorEncodesWithTheWireValueNeverTheCaseName) {
  const std::string line =
      kvo::encodeJson(kvo::FailurePayload(HelperError(HelperErrorCode::resourceLimitExceeded, "Input exceeds size limit")));
  EXPECT_EQ(line, R"({"error":{"code":"resource_limit_exceeded","message":"Input exceeds size limit"},"ok":false})");
  EXPECT_EQ(line.find("resourceLimitExceeded"), std::string::npos);
}

TEST_F(Models, EveryCodeEncodesAsItsWireValue) {
  for (auto code : {HelperErrorCode::invalidInput, HelperErrorCode::encryptedPdf,
                    HelperErrorCode::resourceLimitExceeded, HelperErrorCode::localRuntimeUnavailable,
                    HelperErrorCode::localRuntimeTimeout, HelperErrorCode::localRuntimeFailed}) {
    EXPECT_EQ(kvo::encodeJson(kvo::FailurePayload(HelperError(code, "m"))),
              R"({"error":{"code":")" + std::string(kvo::rawValue(code)) + R"(","message":"m"},"ok":false})");
  }
}

TEST_F(Models, SuccessPayloadIsAlwaysOk) {
  const kvo::SuccessPayload payload("result.json", 3, "abc", "ocr.txt", false, {});
  EXPECT_TRUE(payload.ok);
  EXPECT_EQ(payload.pageCount, 3);
  EXPECT_EQ(payload.resultPath, "result.json");
  EXPECT_EQ(payload.textPath, "ocr.txt");
}

TEST_F(Models, DocumentTakesItsPageCountFromItsPages) {
  const kvo::OcrDocument document("a\n\nb", {kvo::OcrPage{1, "a", 1, 1, std::nullopt, {}},
                                             kvo::OcrPage{2, "b", 1, 1, std::nullopt, {}}},
                                  1.5);
  EXPECT_EQ(document.pageCount, 2);
  EXPECT_EQ(document.metadata.elapsedMs, 1.5);
  EXPECT_EQ(kvo::OcrDocument("", {}, 0).pageCount, 0);
}

TEST_F(Models, PagesDifferingOnlyInAbsentVersusPresentImagePathAreUnequal) {
  const kvo::OcrPage without{1, "t", 10, 20, std::nullopt, {}};
  kvo::OcrPage with = without;
  with.imagePath = "";
  EXPECT_NE(without, with);
  EXPECT_EQ(without, (kvo::OcrPage{1, "t", 10, 20, std::nullopt, {}}));
}

TEST_F(Models, RegionsCompareEveryField) {
  const kvo::OcrRegion region{"t", 0.5, {{1, 2}, {3, 4}}};
  EXPECT_EQ(region, (kvo::OcrRegion{"t", 0.5, {{1, 2}, {3, 4}}}));
  EXPECT_NE(region, (kvo::OcrRegion{"t", 0.5, {{1, 2}}}));
  EXPECT_NE(region, (kvo::OcrRegion{"t", 0.25, {{1, 2}, {3, 4}}}));
  EXPECT_NE(region, (kvo::OcrRegion{"u", 0.5, {{1, 2}, {3, 4}}}));
}

}  // namespace
}  // namespace kvotest
