#include "platform/TesseractEngine.h"

#include <gtest/gtest.h>
#include <omp.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "support/TestSupport.h"

namespace {

using kvo::Bitmap;
using kvo::NormalizedPoint;
using kvo::PixelFormat;
using kvo::RecognitionRequest;
using kvo::TextObservation;
using kvo::test::captureStdStreams;
using Observations = std::vector<TextObservation>;

// The corners of the ink of a text run drawn on a fixture image, in pixels
// (top-left origin): top left, top right, bottom right, bottom left.
struct Drawn {
  double x[4] = {}, y[4] = {};
};

class TesseractEngine : public ::testing::Test {
 protected:
  // Loading models takes a while; tests that do not care about the
  // engine's life share one, set up for the helper's usual request.
  static void SetUpTestSuite() { shared_ = new kvo::TesseractEngine(); }
  static void TearDownTestSuite() {
    delete shared_;
    shared_ = nullptr;
  }

  static RecognitionRequest request(std::vector<std::string> languages = {"zh-Hans", "zh-Hant", "en-US"},
                                    bool correction = true) {
    RecognitionRequest r;
    r.languages = std::move(languages);
    r.usesLanguageCorrection = correction;
    return r;
  }

  // Recognises with the shared engine and fails the test on nullopt.
  static Observations recognize(const Bitmap& image, const RecognitionRequest& r = request()) {
    auto result = shared_->recognize(image, r);
    EXPECT_TRUE(result.has_value());
    return result.value_or(Observations{});
  }

  static Bitmap fixture(const std::string& name, double ppi = 0) { return kvo::test::fixtureBitmap(name, ppi); }

  // Where run `run` was drawn on fixture image `image` (ocr_runs.txt).
  static Drawn drawn(const std::string& image, const std::string& run) {
    std::istringstream in(kvo::test::readFile(kvo::test::fixturePath("ocr_runs.txt")));
    std::string name, label;
    Drawn d;
    while (in >> name >> label) {
      for (int i = 0; i < 4; ++i) in >> d.x[i] >> d.y[i];
      if (name == image && label == run) return d;
    }
    ADD_FAILURE() << "no run " << image << " " << run;
    return {};
  }

  // The same pixels with `padding` black bytes after every row.
  static Bitmap padded(const Bitmap& image, size_t padding) {
    const size_t rowBytes = static_cast<size_t>(image.width()) * static_cast<size_t>(bytesPerPixel(image.format()));
    const size_t stride = rowBytes + padding;
    auto* bytes = static_cast<uint8_t*>(std::calloc(stride * static_cast<size_t>(image.height()), 1));
    for (int64_t y = 0; y < image.height(); ++y)
      std::memcpy(bytes + static_cast<size_t>(y) * stride, image.row(y), rowBytes);
    return Bitmap::adopt(image.width(), image.height(), stride, image.format(), bytes, &std::free);
  }

  // The same picture turned half a turn (upside down).
  static Bitmap upsideDown(const Bitmap& image) {
    Bitmap turned = Bitmap::allocate(image.width(), image.height(), image.format());
    const auto pixel = static_cast<size_t>(bytesPerPixel(image.format()));
    for (int64_t y = 0; y < image.height(); ++y)
      for (int64_t x = 0; x < image.width(); ++x)
        std::memcpy(turned.data() + static_cast<size_t>(image.height() - 1 - y) * turned.stride() +
                        static_cast<size_t>(image.width() - 1 - x) * pixel,
                    image.row(y) + static_cast<size_t>(x) * pixel, pixel);
    turned.setPixelsPerInch(image.pixelsPerInch());
    return turned;
  }

  static Bitmap filled(int64_t width, int64_t height, PixelFormat format, uint8_t value) {
    Bitmap image = Bitmap::allocate(width, height, format);
    std::memset(image.data(), value, image.stride() * static_cast<size_t>(height));
    return image;
  }

  static Bitmap noise(int64_t width, int64_t height) {
    Bitmap image = Bitmap::allocate(width, height, PixelFormat::rgb8);
    std::mt19937 random(12345);
    for (size_t i = 0; i < image.stride() * static_cast<size_t>(height); ++i)
      image.data()[i] = static_cast<uint8_t>(random());
    return image;
  }

  static std::string text(const TextObservation& o) { return o.candidate ? o.candidate->text : std::string(); }

  // The first observation whose text contains `needle`, or nullptr.
  static const TextObservation* find(const Observations& observations, const std::string& needle) {
    for (const auto& o : observations)
      if (text(o).find(needle) != std::string::npos) return &o;
    return nullptr;
  }

  static std::string allText(const Observations& observations) {
    std::string all;
    for (const auto& o : observations) {
      all += '[';
      all += text(o);
      all += ']';
    }
    return all;
  }

  // Checks that each corner of the observation lies within `slack` pixels
  // of the drawn one, converted to normalised bottom-left-origin coordinates.
  static void expectAround(const TextObservation& o, const Drawn& d, const Bitmap& image, double slack = 10) {
    const double w = static_cast<double>(image.width()), h = static_cast<double>(image.height());
    const NormalizedPoint corners[4] = {o.topLeft, o.topRight, o.bottomRight, o.bottomLeft};
    const char* names[4] = {"top left", "top right", "bottom right", "bottom left"};
    for (int i = 0; i < 4; ++i) {
      EXPECT_NEAR(corners[i].x, d.x[i] / w, slack / w) << names[i];
      EXPECT_NEAR(corners[i].y, 1.0 - d.y[i] / h, slack / h) << names[i];
    }
  }

  static void expectConfidenceInUnitRange(const TextObservation& o) {
    ASSERT_TRUE(o.candidate.has_value());
    EXPECT_GE(o.candidate->confidence, 0.0f);
    EXPECT_LE(o.candidate->confidence, 1.0f);
  }

  // Checks that nothing reached stdout or stderr while `body` ran.
  static void expectSilent(const std::function<void()>& body) {
    const auto captured = captureStdStreams(body);
    EXPECT_EQ(captured.out, "");
    EXPECT_EQ(captured.err, "");
  }

  static int threadsInThisProcess() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
      if (line.rfind("Threads:", 0) == 0) return std::atoi(line.c_str() + 8);
    return -1;
  }

  // Whether `s` has a space somewhere between `first` and a later `second`.
  static bool spaceBetween(const std::string& s, const std::string& first, const std::string& second) {
    const auto a = s.find(first);
    const auto b = a == std::string::npos ? a : s.find(second, a + first.size());
    return b != std::string::npos && s.substr(a + first.size(), b - a - first.size()).find(' ') != std::string::npos;
  }

  static inline kvo::TesseractEngine* shared_ = nullptr;
};

// --- Recognition --------------------------------------------------------

TEST_F(TesseractEngine, FindsAnEnglishLineWhereItWasDrawn) {
  const Bitmap image = fixture("ocr_hello.ppm");
  const auto observations = recognize(image);
  const TextObservation* hello = find(observations, "Hello");
  ASSERT_NE(hello, nullptr) << allText(observations);
  EXPECT_NE(text(*hello).find("Hello World"), std::string::npos) << text(*hello);
  expectAround(*hello, drawn("ocr_hello", "hello"), image);
  expectConfidenceInUnitRange(*hello);
}

TEST_F(TesseractEngine, GivesLinesInReadingOrderTopToBottom) {
  const Bitmap image = fixture("ocr_two_lines.ppm");
  const auto observations = recognize(image);
  ASSERT_EQ(observations.size(), 2u) << allText(observations);
  EXPECT_NE(text(observations[0]).find("Alpha"), std::string::npos) << allText(observations);
  EXPECT_NE(text(observations[1]).find("Bravo"), std::string::npos) << allText(observations);
  expectAround(observations[0], drawn("ocr_two_lines", "first"), image);
  expectAround(observations[1], drawn("ocr_two_lines", "second"), image);
}

TEST_F(TesseractEngine, FollowsTheSlopeOfSkewedLines) {
  const Bitmap image = fixture("ocr_skewed.ppm");
  const auto observations = recognize(image);
  ASSERT_EQ(observations.size(), 2u) << allText(observations);
  expectAround(observations[0], drawn("ocr_skewed", "first"), image);
  expectAround(observations[1], drawn("ocr_skewed", "second"), image);
}

TEST_F(TesseractEngine, StraightensCrookedChineseTheSkewFinderIsUnsureOf) {
  const Bitmap image = fixture("ocr_hant_crooked.ppm", 300);
  const auto observations = recognize(image);
  const TextObservation* line = find(observations, "掃描文件時紙張");
  ASSERT_NE(line, nullptr) << allText(observations);
  EXPECT_NE(text(*line).find("每一行文字都會標出它在圖片上的位置"), std::string::npos) << text(*line);
  expectAround(*line, drawn("ocr_hant_crooked", "line2"), image);
  EXPECT_NE(find(observations, "深色背景上的淺色文字也能讀取"), nullptr) << allText(observations);
}

TEST_F(TesseractEngine, ReadsASheetOnADarkDeskThatReadsAsNothingAtFirst) {
  // Read as it is, this photograph holds no text: its levels separate desk
  // from sheet, and the print falls on the sheet's side.
  const Bitmap image = fixture("ocr_sheet_on_desk.ppm");
  const auto observations = recognize(image);
  const TextObservation* line = find(observations, "顯示符號連結的檔案資訊");
  ASSERT_NE(line, nullptr) << allText(observations);
  expectAround(*line, drawn("ocr_sheet_on_desk", "line1"), image);
  EXPECT_NE(find(observations, "輸出診斷資訊"), nullptr) << allText(observations);
}

TEST_F(TesseractEngine, ReadsTheLinesItsLayoutAnalysisDropped) {
  // Read in one pass, this screenshot loses "Ogg FLAC 音訊" and "Ogg Speex 音訊".
  const Bitmap image = fixture("ocr_screenshot_list.ppm");
  const auto observations = recognize(image);
  const TextObservation* flac = find(observations, "FLAC");
  ASSERT_NE(flac, nullptr) << allText(observations);
  EXPECT_NE(text(*flac).find("音訊"), std::string::npos) << text(*flac);
  expectAround(*flac, drawn("ocr_screenshot_list", "line9"), image);
  const TextObservation* speex = find(observations, "Speex");
  ASSERT_NE(speex, nullptr) << allText(observations);
  expectAround(*speex, drawn("ocr_screenshot_list", "line10"), image);
  // The lines the first pass read are there once each.
  int office = 0;
  for (const auto& o : observations) office += text(o).find("Office") != std::string::npos ? 1 : 0;
  EXPECT_EQ(office, 3) << allText(observations);
}

TEST_F(TesseractEngine, CompositesTransparentPixelsOverWhite) {
  // Transparent black background: read without its alpha, the page is black.
  const Bitmap image = fixture("ocr_hello_transparent.pam");
  ASSERT_EQ(image.format(), PixelFormat::rgba8);
  const auto observations = recognize(image);
  const TextObservation* hello = find(observations, "Hello");
  ASSERT_NE(hello, nullptr) << allText(observations);
  expectAround(*hello, drawn("ocr_hello_transparent", "hello"), image);
}

TEST_F(TesseractEngine, ReadsRowsWithPaddingBetweenThem) {
  for (const char* name : {"ocr_hello.ppm", "ocr_hello_transparent.pam"}) {
    const Bitmap image = padded(fixture(name), 37);
    const auto observations = recognize(image);
    const TextObservation* hello = find(observations, "Hello");
    ASSERT_NE(hello, nullptr) << name << allText(observations);
    expectAround(*hello, drawn("ocr_hello", "hello"), image);
  }
}

TEST_F(TesseractEngine, ReadsSimplifiedChineseWithoutSpacesBetweenCharacters) {
  const Bitmap image = fixture("ocr_hans.ppm");
  const auto observations = recognize(image);
  const TextObservation* line = find(observations, "今天");
  ASSERT_NE(line, nullptr) << allText(observations);
  EXPECT_NE(text(*line).find("中文"), std::string::npos) << text(*line);
  EXPECT_EQ(text(*line).find(' '), std::string::npos) << text(*line);
  expectAround(*line, drawn("ocr_hans", "line"), image);
  expectConfidenceInUnitRange(*line);
}

TEST_F(TesseractEngine, ReadsTraditionalChineseWithoutSpacesBetweenCharacters) {
  const Bitmap image = fixture("ocr_hant.ppm");
  const auto observations = recognize(image);
  const TextObservation* line = find(observations, "學習");
  ASSERT_NE(line, nullptr) << allText(observations);
  EXPECT_NE(text(*line).find("繁體"), std::string::npos) << text(*line);
  EXPECT_EQ(text(*line).find(' '), std::string::npos) << text(*line);
}

TEST_F(TesseractEngine, ReadsASimplifiedPageInSimplifiedForms) {
  const auto observations = recognize(fixture("ocr_hans_forms.ppm"));
  const std::string all = allText(observations);
  for (const char* word : {"这个", "数据", "设置", "简体", "选择", "语言", "学习"})
    EXPECT_NE(all.find(word), std::string::npos) << word << " in " << all;
  for (const char* word : {"這", "個", "數", "設", "簡", "選", "語", "學"})
    EXPECT_EQ(all.find(word), std::string::npos) << word << " in " << all;
}

TEST_F(TesseractEngine, ReadsATraditionalPageInTraditionalForms) {
  const auto observations = recognize(fixture("ocr_hant_forms.ppm"));
  const std::string all = allText(observations);
  for (const char* word : {"這個", "資料", "設定", "選擇", "語言", "學習"})
    EXPECT_NE(all.find(word), std::string::npos) << word << " in " << all;
  for (const char* word : {"这", "个", "资", "设", "为", "选", "语", "学"})
    EXPECT_EQ(all.find(word), std::string::npos) << word << " in " << all;
}

TEST_F(TesseractEngine, ReadsATraditionalPageWithFewTraditionalFormsInTraditionalForms) {
  const auto observations = recognize(fixture("ocr_hant_manual.ppm", 200));
  const std::string all = allText(observations);
  for (const char* word : {"尋找", "與給定", "內容", "選項", "說明後"})
    EXPECT_NE(all.find(word), std::string::npos) << word << " in " << all;
  for (const char* word : {"寻", "与", "给", "内", "选", "说", "后"})
    EXPECT_EQ(all.find(word), std::string::npos) << word << " in " << all;
}

TEST_F(TesseractEngine, ReadsEnglishOnAChinesePage) {
  const Bitmap image = fixture("ocr_hant_manual.ppm", 200);
  const auto observations = recognize(image);
  EXPECT_NE(find(observations, "--help"), nullptr) << allText(observations);
  EXPECT_NE(find(observations, "SYNOPSIS"), nullptr) << allText(observations);
  const TextObservation* line = find(observations, "[options]");
  ASSERT_NE(line, nullptr) << allText(observations);
  EXPECT_EQ(text(*line), "grep [options] PATTERN [FILE...]");
  expectAround(*line, drawn("ocr_hant_manual", "line6"), image);
}

TEST_F(TesseractEngine, LeavesLetterSpacedChineseToTheChineseReading) {
  const auto observations = recognize(fixture("ocr_hans_spaced.ppm", 200));
  const std::string all = allText(observations);
  EXPECT_NE(all.find("中"), std::string::npos) << all;
  for (const TextObservation& o : observations)
    for (const char c : text(o)) EXPECT_FALSE(c > ' ' && c <= '~') << "ASCII " << c << " in " << all;
}

TEST_F(TesseractEngine, ReadsHanOnAPageItsSampleFoundNoneOn) {
  // The sample misses both names, so the page is read as one without Han:
  // the Chinese model still reads the words the English one cannot.
  const auto observations = recognize(fixture("ocr_english_with_names.ppm", 200));
  const std::string all = allText(observations);
  EXPECT_NE(all.find("王小明"), std::string::npos) << all;
  EXPECT_NE(all.find("北京"), std::string::npos) << all;
  EXPECT_NE(find(observations, "quarterly report"), nullptr) << all;
}

TEST_F(TesseractEngine, ReadsAPageUpsideDownTurnedBack) {
  // Ten English lines upside down: read as they stand they are garbage the
  // engine is unsure of; read turned half they are the page.
  const auto observations = recognize(upsideDown(fixture("ocr_english_with_names.ppm", 200)));
  const std::string all = allText(observations);
  const TextObservation* first = find(observations, "quarterly report");
  ASSERT_NE(first, nullptr) << all;
  EXPECT_NE(find(observations, "Minutes of the meeting"), nullptr) << all;
  // The first line of the page lies at the bottom of the picture as given
  // (corners normalised with the origin at the bottom left), and reads
  // from right to left there: its top-left corner is to the right.
  EXPECT_LT(first->topLeft.y, 0.3);
  EXPECT_GT(first->topLeft.x, first->topRight.x);
}

TEST_F(TesseractEngine, LeavesAPageTheRightWayUpAsItStands) {
  const auto observations = recognize(fixture("ocr_english_with_names.ppm", 200));
  const TextObservation* first = find(observations, "quarterly report");
  ASSERT_NE(first, nullptr) << allText(observations);
  EXPECT_GT(first->topLeft.y, 0.7);
  EXPECT_LT(first->topLeft.x, first->topRight.x);
}

TEST_F(TesseractEngine, ChoosesTheScriptWhicheverChineseIsRequestedFirst) {
  kvo::TesseractEngine engine;
  const auto simplified = engine.recognize(fixture("ocr_hans_forms.ppm"), request({"zh-Hant", "zh-Hans", "en"}));
  ASSERT_TRUE(simplified.has_value());
  EXPECT_NE(allText(*simplified).find("数据"), std::string::npos) << allText(*simplified);
  const auto traditional = engine.recognize(fixture("ocr_hant_forms.ppm"), request({"zh-Hant", "zh-Hans", "en"}));
  ASSERT_TRUE(traditional.has_value());
  EXPECT_NE(allText(*traditional).find("資料"), std::string::npos) << allText(*traditional);
}

TEST_F(TesseractEngine, LoadsTheOtherChineseModelOnlyForPagesWithHan) {
  // chi_tra is there but cannot be loaded: a page that never needs it reads
  // fine; the first page that does makes the engine fail.
  kvo::test::TempDir dir;
  for (const char* model : {"eng.traineddata", "chi_sim.traineddata"})
    std::filesystem::create_symlink(kvo::TesseractEngine::defaultTessdataDir() + "/" + model, dir.file(model));
  std::ofstream(dir.file("chi_tra.traineddata")) << "not a model";
  kvo::TesseractEngine engine(dir.path());
  std::optional<Observations> english, chinese;
  expectSilent([&] {
    english = engine.recognize(fixture("ocr_two_lines.ppm"), request());
    chinese = engine.recognize(fixture("ocr_hans_forms.ppm"), request());
  });
  ASSERT_TRUE(english.has_value());
  EXPECT_NE(find(*english, "Alpha"), nullptr) << allText(*english);
  EXPECT_FALSE(chinese.has_value());
  EXPECT_FALSE(engine.recognize(fixture("ocr_two_lines.ppm"), request()).has_value());
}

TEST_F(TesseractEngine, KeepsASpaceWhereChineseWordsStandApart) {
  const Bitmap image = fixture("ocr_hans_gap.ppm");
  const auto observations = recognize(image);
  const TextObservation* line = find(observations, "天气");
  ASSERT_NE(line, nullptr) << allText(observations);
  EXPECT_TRUE(spaceBetween(text(*line), "天气", "很好")) << text(*line);
  EXPECT_FALSE(spaceBetween(text(*line), "今", "天气")) << text(*line);
}

TEST_F(TesseractEngine, KeepsTheSpaceBetweenLatinAndChinese) {
  const auto observations = recognize(fixture("ocr_mixed.ppm"));
  const TextObservation* line = find(observations, "Hello");
  ASSERT_NE(line, nullptr) << allText(observations);
  EXPECT_TRUE(spaceBetween(text(*line), "Hello", "中文")) << text(*line);
}

TEST_F(TesseractEngine, UsesTheResolutionOfTheBitmap) {
  // Tesseract's own estimate from the text size (about 600 dpi) loses this
  // line altogether; the real resolution keeps it.
  const auto observations = recognize(fixture("ocr_resolution.ppm", 200));
  EXPECT_NE(find(observations, "很好"), nullptr) << allText(observations);
}

TEST_F(TesseractEngine, ReadsWithoutLanguageCorrection) {
  kvo::TesseractEngine engine;
  const auto observations = engine.recognize(fixture("ocr_hello.ppm"), request({"en"}, false));
  ASSERT_TRUE(observations.has_value());
  EXPECT_NE(find(*observations, "Hello"), nullptr) << allText(*observations);
}

TEST_F(TesseractEngine, ReloadsModelsWhenTheLanguagesChange) {
  kvo::TesseractEngine engine;
  const auto english = engine.recognize(fixture("ocr_hello.ppm"), request({"en"}));
  ASSERT_TRUE(english.has_value());
  EXPECT_NE(find(*english, "Hello"), nullptr) << allText(*english);
  // The English model alone cannot produce Han characters.
  const auto chinese = engine.recognize(fixture("ocr_hans.ppm"), request({"zh-Hans"}));
  ASSERT_TRUE(chinese.has_value());
  EXPECT_NE(find(*chinese, "中文"), nullptr) << allText(*chinese);
}

// --- Pages without text and unusable input -------------------------------

TEST_F(TesseractEngine, ReturnsNoObservationsForABlankPage) {
  const Bitmap page = filled(1200, 800, PixelFormat::rgb8, 255);
  std::optional<Observations> result;
  expectSilent([&] { result = shared_->recognize(page, request()); });
  ASSERT_TRUE(result.has_value());
  EXPECT_TRUE(result->empty()) << allText(*result);
}

TEST_F(TesseractEngine, ReturnsNoObservationsForAFullyTransparentPage) {
  const Bitmap page = filled(600, 400, PixelFormat::rgba8, 0);
  const auto observations = recognize(page);
  EXPECT_TRUE(observations.empty()) << allText(observations);
}

TEST_F(TesseractEngine, HandlesTinyImagesSilently) {
  for (const auto& [w, h] : {std::pair<int, int>{1, 1}, {3, 2}, {2, 3}}) {
    for (uint8_t value : {uint8_t{0}, uint8_t{255}}) {
      const Bitmap page = filled(w, h, PixelFormat::rgb8, value);
      std::optional<Observations> result;
      expectSilent([&] { result = shared_->recognize(page, request()); });
      ASSERT_TRUE(result.has_value()) << w << "x" << h;
      EXPECT_TRUE(result->empty()) << w << "x" << h << allText(*result);
    }
  }
}

TEST_F(TesseractEngine, HandlesNoiseSilently) {
  const Bitmap page = noise(640, 480);
  std::optional<Observations> result;
  expectSilent([&] { result = shared_->recognize(page, request()); });
  ASSERT_TRUE(result.has_value());
  for (const auto& o : *result)
    if (o.candidate) expectConfidenceInUnitRange(o);
}

TEST_F(TesseractEngine, IsSilentAboutAnImplausibleResolution) {
  std::optional<Observations> result;
  expectSilent([&] { result = shared_->recognize(fixture("ocr_hello.ppm", 3), request()); });
  EXPECT_TRUE(result.has_value());
}

TEST_F(TesseractEngine, RejectsBitmapsItCannotRead) {
  EXPECT_FALSE(shared_->recognize(Bitmap(), request()).has_value());
  // Wider than Tesseract's layout analysis accepts.
  EXPECT_FALSE(shared_->recognize(filled(40000, 2, PixelFormat::rgb8, 255), request()).has_value());
  // Rows shorter than the pixels they claim to hold.
  auto* bytes = static_cast<uint8_t*>(std::calloc(100, 1));
  const Bitmap truncated = Bitmap::adopt(10, 10, 10, PixelFormat::rgb8, bytes, &std::free);
  EXPECT_FALSE(shared_->recognize(truncated, request()).has_value());
}

// --- Models ----------------------------------------------------------------

TEST_F(TesseractEngine, FailsSilentlyAndForGoodWithoutModels) {
  kvo::test::TempDir empty;
  kvo::TesseractEngine engine(empty.path());
  const Bitmap image = fixture("ocr_hello.ppm");
  expectSilent([&] {
    EXPECT_FALSE(engine.recognize(image, request()).has_value());
    EXPECT_FALSE(engine.recognize(image, request({"en"})).has_value());
  });
}

TEST_F(TesseractEngine, FailsWhenOneRequestedModelIsMissing) {
  kvo::test::TempDir dir;
  std::filesystem::create_symlink(kvo::TesseractEngine::defaultTessdataDir() + "/eng.traineddata",
                                  dir.file("eng.traineddata"));
  kvo::TesseractEngine partial(dir.path());
  expectSilent([&] { EXPECT_FALSE(partial.recognize(fixture("ocr_hello.ppm"), request()).has_value()); });
  kvo::TesseractEngine englishOnly(dir.path());
  const auto result = englishOnly.recognize(fixture("ocr_hello.ppm"), request({"en"}));
  ASSERT_TRUE(result.has_value());
  EXPECT_NE(find(*result, "Hello"), nullptr) << allText(*result);
}

TEST_F(TesseractEngine, IgnoresTessdataPrefix) {
  kvo::test::TempDir empty;
  const char* old = std::getenv("TESSDATA_PREFIX");
  const std::optional<std::string> saved = old ? std::optional<std::string>(old) : std::nullopt;
  setenv("TESSDATA_PREFIX", empty.path().c_str(), 1);
  kvo::TesseractEngine installed;
  const auto found = installed.recognize(fixture("ocr_hello.ppm"), request({"en"}));
  setenv("TESSDATA_PREFIX", kvo::TesseractEngine::defaultTessdataDir().c_str(), 1);
  kvo::TesseractEngine missing(empty.path());
  const auto notFound = missing.recognize(fixture("ocr_hello.ppm"), request({"en"}));
  if (saved) setenv("TESSDATA_PREFIX", saved->c_str(), 1);
  else unsetenv("TESSDATA_PREFIX");
  EXPECT_TRUE(found.has_value());
  EXPECT_FALSE(notFound.has_value());
}

TEST_F(TesseractEngine, LoadsModelsSilently) {
  kvo::TesseractEngine engine;
  std::optional<Observations> result;
  expectSilent([&] { result = engine.recognize(fixture("ocr_hello.ppm"), request()); });
  ASSERT_TRUE(result.has_value());
  EXPECT_NE(find(*result, "Hello"), nullptr) << allText(*result);
}

// --- Threads -----------------------------------------------------------------

TEST_F(TesseractEngine, RecognisesOnTheCallingThreadOnly) {
  // libgomp keeps the threads of its pool alive after a parallel region, so
  // any region that ran with more than one thread leaves them behind.
  if (std::getenv("OMP_THREAD_LIMIT") != nullptr) GTEST_SKIP() << "OMP_THREAD_LIMIT would hide extra threads";
  const auto observations = recognize(fixture("ocr_two_lines.ppm"));
  EXPECT_EQ(observations.size(), 2u);
  EXPECT_EQ(threadsInThisProcess(), 1);
}

TEST_F(TesseractEngine, LeavesTheCallersOpenMpSettingAsItWas) {
  const int before = omp_get_max_active_levels();
  ASSERT_GT(before, 0);
  recognize(fixture("ocr_hello.ppm"));
  EXPECT_EQ(omp_get_max_active_levels(), before);
}

}  // namespace
