#include "VisionOcrCore/Json.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "fakes/Expectations.h"

namespace kvotest {
namespace {

using kvo::decodeJson;
using kvo::encodeJson;
using kvo::FailurePayload;
using kvo::HelperError;
using kvo::HelperErrorCode;
using kvo::JsonDecodingError;
using kvo::JsonEncodingError;
using kvo::OcrDocument;
using kvo::OcrPage;
using kvo::OcrRegion;
using kvo::PagePreview;
using kvo::SuccessPayload;

class Json : public ::testing::Test {
 protected:
  static OcrRegion helloRegion() {
    return OcrRegion{"Hello", 0.5, {{10.5, 20.25}, {210.5, 20.25}, {210.5, 50.75}, {10.5, 50.75}}};
  }
  static OcrPage pageWithoutImage() { return OcrPage{1, "", 800, 600, std::nullopt, {}}; }
  static SuccessPayload payloadWithPreview(std::string preview) {
    return SuccessPayload("result.json", 1, std::move(preview), "ocr.txt", false, {});
  }
  static bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }
};

// ---- the standard-output payloads ---------------------------------------------------

TEST_F(Json, FailureLineHasErrorFirstThenOk) {
  EXPECT_EQ(encodeJson(FailurePayload(HelperError(HelperErrorCode::invalidInput, "Input file is missing"))),
            R"({"error":{"code":"invalid_input","message":"Input file is missing"},"ok":false})");
}

TEST_F(Json, SuccessLineHasItsKeysSortedAtEveryLevel) {
  const SuccessPayload payload("result.json", 7, "abc", "ocr.txt", true,
                               {PagePreview{1, "pages/page-0001.png"}, PagePreview{2, "pages/page-0002.png"}});
  EXPECT_EQ(encodeJson(payload),
            R"({"ok":true,"pageCount":7,"pagesPreview":[{"imagePath":"pages/page-0001.png","page":1},)"
            R"({"imagePath":"pages/page-0002.png","page":2}],"resultPath":"result.json","textPath":"ocr.txt",)"
            R"("textPreview":"abc","truncated":true})");
}

TEST_F(Json, EmptyPagesPreviewIsWrittenAsEmptyArray) {
  EXPECT_EQ(encodeJson(payloadWithPreview("")),
            R"({"ok":true,"pageCount":1,"pagesPreview":[],"resultPath":"result.json","textPath":"ocr.txt",)"
            R"("textPreview":"","truncated":false})");
}

TEST_F(Json, LineFeedAndQuotationMarkAreEscaped) {
  const std::string line = encodeJson(payloadWithPreview("say \"hi\"\nbye"));
  EXPECT_NE(line.find(R"("textPreview":"say \"hi\"\nbye")"), std::string::npos) << line;
  EXPECT_EQ(line.find('\n'), std::string::npos);
}

TEST_F(Json, BackslashIsEscaped) {
  EXPECT_NE(encodeJson(payloadWithPreview("a\\b")).find(R"("textPreview":"a\\b")"), std::string::npos);
}

TEST_F(Json, ControlCharactersAreEscaped) {
  const std::string line = encodeJson(payloadWithPreview(std::string("\t\r\b\f\x01\x1f", 6) + std::string(1, '\0')));
  EXPECT_NE(line.find(R"("textPreview":"\t\r\b\f\u0001\u001f\u0000")"), std::string::npos) << line;
}

TEST_F(Json, NonAsciiIsWrittenAsUtf8) {
  EXPECT_NE(encodeJson(payloadWithPreview("été 漢字 👩‍👩‍👧")).find(R"("textPreview":"été 漢字 👩‍👩‍👧")"),
            std::string::npos);
}

TEST_F(Json, SlashesAreNotEscaped) {
  const SuccessPayload payload("result.json", 1, "a/b", "ocr.txt", false, {PagePreview{1, "pages/page-0001.png"}});
  const std::string line = encodeJson(payload);
  EXPECT_NE(line.find(R"("imagePath":"pages/page-0001.png")"), std::string::npos);
  EXPECT_NE(line.find(R"("textPreview":"a/b")"), std::string::npos);
  EXPECT_EQ(line.find("\\/"), std::string::npos);
}

TEST_F(Json, SameValueAlwaysGivesTheSameBytes) {
  const OcrDocument one("x", {OcrPage{1, "x", 3, 4, "pages/page-0001.png", {helloRegion()}}}, 12.5);
  const OcrDocument two("x", {OcrPage{1, "x", 3, 4, "pages/page-0001.png", {helloRegion()}}}, 12.5);
  const std::string first = encodeJson(one);
  EXPECT_EQ(first, encodeJson(one));
  EXPECT_EQ(first, encodeJson(two));
}

TEST_F(Json, PagePreviewAlwaysCarriesItsImagePathEvenWhenEmpty) {
  EXPECT_EQ(encodeJson(PagePreview{3, ""}), R"({"imagePath":"","page":3})");
  EXPECT_EQ(encodeJson(PagePreview{12, "pages/page-0012.png"}), R"({"imagePath":"pages/page-0012.png","page":12})");
}

// ---- the result records ------------------------------------------------------------------

TEST_F(Json, ResultDocumentOfOneImagePageHasTheDocumentedBytes) {
  const OcrDocument document("Hello", {OcrPage{1, "Hello", 800, 600, std::nullopt, {helloRegion()}}}, 412.5);
  EXPECT_EQ(encodeJson(document),
            R"({"metadata":{"elapsedMs":412.5},"pageCount":1,"pages":[{"height":600,"page":1,"regions":)"
            R"([{"confidence":0.5,"polygon":[[10.5,20.25],[210.5,20.25],[210.5,50.75],[10.5,50.75]],"text":"Hello"}],)"
            R"("text":"Hello","width":800}],"text":"Hello"})");
}

TEST_F(Json, PageMembersAreSortedWithImagePathWhenPresent) {
  EXPECT_EQ(encodeJson(OcrPage{1, "", 1700, 2200, "pages/page-0001.png", {}}),
            R"({"height":2200,"imagePath":"pages/page-0001.png","page":1,"regions":[],"text":"","width":1700})");
}

TEST_F(Json, PageWithoutImagePathHasNoImagePathMember) {
  const std::string page = encodeJson(pageWithoutImage());
  EXPECT_EQ(page, R"({"height":600,"page":1,"regions":[],"text":"","width":800})");
  EXPECT_EQ(page.find("null"), std::string::npos);
}

TEST_F(Json, PageWithoutImagePathDecodesToAbsentPath) {
  EXPECT_EQ(decodeJson<OcrPage>(R"({"height":600,"page":1,"regions":[],"text":"","width":800})"), pageWithoutImage());
}

TEST_F(Json, PageWithNullImagePathDecodesToAbsentPath) {
  const OcrPage page =
      decodeJson<OcrPage>(R"({"height":600,"imagePath":null,"page":1,"regions":[],"text":"","width":800})");
  EXPECT_EQ(page.imagePath, std::nullopt);
  EXPECT_EQ(page, pageWithoutImage());
}

TEST_F(Json, PageWithImagePathRoundTrips) {
  const OcrPage page{4, "t", 2, 3, "pages/page-0004.png", {helloRegion()}};
  EXPECT_EQ(decodeJson<OcrPage>(encodeJson(page)), page);
}

TEST_F(Json, DocumentBuiltFromTwoPagesEncodesPageCountTwo) {
  const OcrDocument document("a\n\nb", {OcrPage{1, "a", 1, 1, std::nullopt, {}}, OcrPage{2, "b", 1, 1, std::nullopt, {}}},
                             1);
  EXPECT_NE(encodeJson(document).find(R"("pageCount":2,)"), std::string::npos);
}

TEST_F(Json, DecodedDocumentKeepsThePageCountOfTheFile) {
  const OcrDocument document = decodeJson<OcrDocument>(
      R"({"metadata":{"elapsedMs":1},"pageCount":5,"pages":[)"
      R"({"height":1,"page":1,"regions":[],"text":"a","width":1},{"height":1,"page":2,"regions":[],"text":"b","width":1}],)"
      R"("text":"a\n\nb"})");
  EXPECT_EQ(document.pageCount, 5);
  EXPECT_EQ(document.pages.size(), 2u);
  EXPECT_EQ(document.text, "a\n\nb");
}

TEST_F(Json, PolygonsOfOddShapesRoundTripFaithfully) {
  const OcrRegion region{"odd", 0.25, {{}, {1.5}, {1.5, 2.5, 3.5}}};
  const std::string encoded = encodeJson(region);
  EXPECT_EQ(encoded, R"({"confidence":0.25,"polygon":[[],[1.5],[1.5,2.5,3.5]],"text":"odd"})");
  EXPECT_EQ(decodeJson<OcrRegion>(encoded), region);
}

TEST_F(Json, PolygonsOfThreeAndFivePointsAndNoPointsRoundTrip) {
  for (const auto& polygon : std::vector<std::vector<std::vector<double>>>{
           {}, {{1, 2}, {3, 4}, {5, 6}}, {{1, 2}, {3, 4}, {5, 6}, {7, 8}, {9, 10.5}}}) {
    const OcrRegion region{"r", 1, polygon};
    EXPECT_EQ(decodeJson<OcrRegion>(encodeJson(region)), region);
  }
  EXPECT_EQ(encodeJson(OcrRegion{"r", 1, {}}), R"({"confidence":1,"polygon":[],"text":"r"})");
}

TEST_F(Json, DocumentRoundTrips) {
  const OcrDocument document("Hello\n\n", {OcrPage{1, "Hello", 800, 600, std::nullopt, {helloRegion()}},
                                          OcrPage{2, "", 1700, 2200, "pages/page-0002.png", {}}},
                             0.125);
  EXPECT_EQ(decodeJson<OcrDocument>(encodeJson(document)), document);
}

// ---- numbers --------------------------------------------------------------------------------

TEST_F(Json, WholeNumberDoublesAreWrittenWithoutAFraction) {
  EXPECT_EQ(encodeJson(OcrRegion{"a", 1.0, {{0, 600}, {800, 0}}}),
            R"({"confidence":1,"polygon":[[0,600],[800,0]],"text":"a"})");
  EXPECT_EQ(encodeJson(kvo::Metadata{1000}), R"({"elapsedMs":1000})");
  EXPECT_EQ(encodeJson(OcrRegion{"a", 0, {{25000000, 1}}}), R"({"confidence":0,"polygon":[[25000000,1]],"text":"a"})");
}

TEST_F(Json, DoublesUseTheirShortestRoundTripDigits) {
  EXPECT_EQ(encodeJson(kvo::Metadata{static_cast<double>(0.3f)}), R"({"elapsedMs":0.30000001192092896})");
  EXPECT_EQ(encodeJson(kvo::Metadata{0.1}), R"({"elapsedMs":0.1})");
  EXPECT_EQ(encodeJson(kvo::Metadata{1.0 / 3}), R"({"elapsedMs":0.3333333333333333})");
  EXPECT_EQ(encodeJson(kvo::Metadata{12.345}), R"({"elapsedMs":12.345})");
}

TEST_F(Json, DoublesReadBackAsTheSameValue) {
  for (double value : {0.1, 0.30000001192092896, 1e-7, 123456.789, 1e300, 5e-324, 9007199254740993.0, 1e16,
                       2.5e-5, 0.0001, std::numeric_limits<double>::max()}) {
    const double back = decodeJson<kvo::Metadata>(encodeJson(kvo::Metadata{value})).elapsedMs;
    EXPECT_TRUE(sameBits(back, value)) << encodeJson(kvo::Metadata{value});
  }
}

TEST_F(Json, NotANumberMakesEncodingThrow) {
  EXPECT_THROW(encodeJson(OcrRegion{"a", std::nan(""), {}}), JsonEncodingError);
}

TEST_F(Json, InfinityAnywhereMakesEncodingThrow) {
  const double inf = std::numeric_limits<double>::infinity();
  EXPECT_THROW(encodeJson(OcrDocument("", {}, inf)), JsonEncodingError);
  EXPECT_THROW(encodeJson(OcrRegion{"a", 0.5, {{1, -inf}}}), JsonEncodingError);
  const OcrDocument deep("", {OcrPage{1, "", 1, 1, std::nullopt, {OcrRegion{"a", 0.5, {{std::nan(""), 1}}}}}}, 1);
  EXPECT_THROW(encodeJson(deep), JsonEncodingError);
}

// ---- decoding -----------------------------------------------------------------------------

TEST_F(Json, SuccessPayloadRoundTrips) {
  const SuccessPayload payload("result.json", 7, "a\"b\n/c", "ocr.txt", true, {PagePreview{1, "pages/page-0001.png"}});
  EXPECT_EQ(decodeJson<SuccessPayload>(encodeJson(payload)), payload);
}

TEST_F(Json, FailurePayloadRoundTrips) {
  const FailurePayload payload(HelperError(HelperErrorCode::localRuntimeTimeout, "x"));
  EXPECT_EQ(decodeJson<FailurePayload>(encodeJson(payload)), payload);
}

TEST_F(Json, OkIsReadFromTheData) {
  const SuccessPayload payload = decodeJson<SuccessPayload>(
      R"({"ok":false,"pageCount":1,"pagesPreview":[],"resultPath":"r","textPath":"t","textPreview":"","truncated":false})");
  EXPECT_FALSE(payload.ok);
  const FailurePayload failure = decodeJson<FailurePayload>(R"({"error":{"code":"invalid_input","message":"m"},"ok":true})");
  EXPECT_TRUE(failure.ok);
}

TEST_F(Json, UnknownKeysAreIgnored) {
  EXPECT_EQ(decodeJson<PagePreview>(R"({"extra":[1,2],"imagePath":"p","page":2,"Page":"x"})"), (PagePreview{2, "p"}));
}

TEST_F(Json, MissingRequiredKeyFailsToDecode) {
  EXPECT_THROW(decodeJson<OcrRegion>(R"({"confidence":1,"polygon":[]})"), JsonDecodingError);
  EXPECT_THROW(decodeJson<OcrPage>(R"({"height":1,"page":1,"text":"","width":1})"), JsonDecodingError);
  EXPECT_THROW(decodeJson<SuccessPayload>(
                   R"({"ok":true,"pageCount":1,"resultPath":"r","textPath":"t","textPreview":"","truncated":false})"),
               JsonDecodingError);
}

TEST_F(Json, KeysAreCaseSensitive) {
  EXPECT_THROW(decodeJson<PagePreview>(R"({"ImagePath":"p","page":2})"), JsonDecodingError);
}

TEST_F(Json, WrongTypeFailsToDecode) {
  EXPECT_THROW(decodeJson<PagePreview>(R"({"imagePath":"p","page":"2"})"), JsonDecodingError);
  EXPECT_THROW(decodeJson<OcrPage>(R"({"height":1,"imagePath":5,"page":1,"regions":[],"text":"","width":1})"),
               JsonDecodingError);
  EXPECT_THROW(decodeJson<OcrRegion>(R"({"confidence":"1","polygon":[],"text":""})"), JsonDecodingError);
  EXPECT_THROW(decodeJson<OcrRegion>(R"({"confidence":1,"polygon":[[1,"2"]],"text":""})"), JsonDecodingError);
}

TEST_F(Json, UnknownErrorCodeFailsToDecode) {
  EXPECT_THROW(decodeJson<FailurePayload>(R"({"error":{"code":"INVALID_INPUT","message":"m"},"ok":false})"),
               JsonDecodingError);
}

TEST_F(Json, MalformedTextFailsToDecode) {
  EXPECT_THROW(decodeJson<PagePreview>(R"({"imagePath":"p","page":2)"), JsonDecodingError);
  EXPECT_THROW(decodeJson<PagePreview>("[]"), JsonDecodingError);
}

}  // namespace
}  // namespace kvotest
