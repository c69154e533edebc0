// PP-OCR's pre- and post-processing on synthetic maps and crops: no runtime,
// no network.

#include "platform/onnx/PpOcrProcessing.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <opencv2/imgproc.hpp>

namespace kvo::onnx::ppocr {
namespace {

TEST(PpOcrProcessing, TheDetectorInputOfALetterPageAt200DpiIs736By960) {
  cv::Mat page(2200, 1700, CV_8UC1, cv::Scalar(255));
  Tensor input = detectorInput(page, 960);
  EXPECT_EQ(input.height, 960);
  EXPECT_EQ(input.width, 736);
  EXPECT_EQ(input.data.size(), size_t(3) * 960 * 736);
  // White normalised with the blue channel's mean and deviation first.
  EXPECT_NEAR(input.data[0], (1.0f - 0.485f) / 0.229f, 1e-5);
}

TEST(PpOcrProcessing, ASmallPageIsNotEnlargedOnlyRoundedTo32) {
  cv::Mat page(50, 100, CV_8UC3, cv::Scalar(0, 0, 0));
  Tensor input = detectorInput(page, 960);
  EXPECT_EQ(input.height, 64);
  EXPECT_EQ(input.width, 96);
}

// A probability map with one upright and one turned block of text.
TEST(PpOcrProcessing, TextBlocksBecomeQuadrilateralsGrownBackAndScaledToThePage) {
  cv::Mat map(200, 400, CV_32FC1, cv::Scalar(0.05f));
  cv::rectangle(map, cv::Rect(40, 30, 200, 20), cv::Scalar(0.95f), cv::FILLED);
  cv::RotatedRect turned(cv::Point2f(200, 140), cv::Size2f(220, 24), 10);
  cv::Point2f corners[4];
  turned.points(corners);
  std::vector<cv::Point> polygon(corners, corners + 4);
  cv::fillPoly(map, std::vector<std::vector<cv::Point>>{polygon}, cv::Scalar(0.9f));

  std::vector<TextQuad> lines = linesFromProbability(map.ptr<float>(), 200, 400, 800, 400, DbParameters{});
  ASSERT_EQ(lines.size(), 2u);
  // Upright block: 200 x 20 map pixels grown by area * 1.5 / perimeter
  // (6.8 px) a side, then doubled to the page's scale.
  const TextQuad& upright = lines[0];
  EXPECT_NEAR(upright.score, 0.95f, 0.02f);
  double grow = 200.0 * 20 * 1.5 / (2 * (200 + 20));
  EXPECT_NEAR(upright.corners[0].x, 2 * (40 - grow), 4);
  EXPECT_NEAR(upright.corners[0].y, 2 * (30 - grow), 4);
  EXPECT_NEAR(upright.corners[2].x, 2 * (240 + grow), 4);
  EXPECT_NEAR(upright.corners[2].y, 2 * (50 + grow), 4);
  // Turned block: its top edge keeps the 10 degree slope.
  const TextQuad& slanted = lines[1];
  double slope = std::atan2(slanted.corners[1].y - slanted.corners[0].y, slanted.corners[1].x - slanted.corners[0].x);
  EXPECT_NEAR(slope * 180 / M_PI, 10, 1.0);
  EXPECT_LT(slanted.corners[0].x, slanted.corners[1].x);
  EXPECT_LT(slanted.corners[0].y, slanted.corners[3].y);
}

TEST(PpOcrProcessing, FaintOrTinyBlobsAreNoLines) {
  cv::Mat map(100, 100, CV_32FC1, cv::Scalar(0.0f));
  cv::rectangle(map, cv::Rect(10, 10, 50, 10), cv::Scalar(0.4f), cv::FILLED);  // above 0.3, box under 0.6
  cv::rectangle(map, cv::Rect(10, 60, 2, 2), cv::Scalar(1.0f), cv::FILLED);    // under 3 pixels
  EXPECT_TRUE(linesFromProbability(map.ptr<float>(), 100, 100, 100, 100, DbParameters{}).empty());
}

TEST(PpOcrProcessing, LinesOnOneRowReadLeftToRight) {
  cv::Mat map(100, 400, CV_32FC1, cv::Scalar(0.0f));
  cv::rectangle(map, cv::Rect(220, 20, 120, 16), cv::Scalar(1.0f), cv::FILLED);
  cv::rectangle(map, cv::Rect(20, 24, 120, 16), cv::Scalar(1.0f), cv::FILLED);  // lower by 4, further left
  cv::rectangle(map, cv::Rect(20, 70, 120, 16), cv::Scalar(1.0f), cv::FILLED);
  auto lines = linesFromProbability(map.ptr<float>(), 100, 400, 400, 100, DbParameters{});
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_LT(lines[0].corners[0].x, 100);
  EXPECT_GT(lines[1].corners[0].x, 200);
  EXPECT_GT(lines[2].corners[0].y, 50);
}

TEST(PpOcrProcessing, ACropIsStraightenedAndATallOneTurned) {
  cv::Mat page(200, 300, CV_8UC1, cv::Scalar(255));
  TextQuad wide{{{10, 10}, {110, 10}, {110, 40}, {10, 40}}, 1};
  cv::Mat crop = cropLine(page, wide);
  EXPECT_EQ(crop.cols, 100);
  EXPECT_EQ(crop.rows, 30);
  EXPECT_EQ(crop.type(), CV_8UC3);
  TextQuad tall{{{10, 10}, {40, 10}, {40, 110}, {10, 110}}, 1};
  crop = cropLine(page, tall);
  EXPECT_EQ(crop.cols, 100);
  EXPECT_EQ(crop.rows, 30);
  EXPECT_TRUE(cropLine(page, TextQuad{}).empty());
}

TEST(PpOcrProcessing, TheRecognizerInputIs48HighAtLeast320WidePaddedWithZeros) {
  cv::Mat crop(30, 60, CV_8UC3, cv::Scalar(255, 255, 255));
  Tensor input = recognizerInput(crop);
  EXPECT_EQ(input.height, 48);
  EXPECT_EQ(input.width, 320);
  EXPECT_FLOAT_EQ(input.data[0], 1.0f);     // white at the left
  EXPECT_FLOAT_EQ(input.data[319], 0.0f);   // padding at the right
  cv::Mat longLine(20, 400, CV_8UC3, cv::Scalar(0, 0, 0));
  input = recognizerInput(longLine);
  EXPECT_EQ(input.width, 960);
  EXPECT_FLOAT_EQ(input.data[959], -1.0f);  // black all the way
  std::vector<Tensor> windows = classifierInputs(longLine);
  ASSERT_EQ(windows.size(), 3u);
  EXPECT_EQ(windows[0].width, 192);
  EXPECT_EQ(windows[0].height, 48);
  EXPECT_FLOAT_EQ(windows[0].data[191], -1.0f);  // a window of the line, not padding
  EXPECT_EQ(classifierInputs(cv::Mat(20, 60, CV_8UC3)).size(), 1u);
  EXPECT_EQ(classifierInputs(cv::Mat(48, 250, CV_8UC3)).size(), 1u);  // the end window overlaps the start
  EXPECT_EQ(classifierInputs(cv::Mat(48, 300, CV_8UC3)).size(), 2u);  // start and end
}

TEST(PpOcrProcessing, CtcMergesRepeatsDropsBlanksAndAveragesTheKeptConfidences) {
  std::vector<std::string> characters{"blank", "中", "a", " "};
  // steps: 中 中 blank 中 a a blank " "
  const int best[] = {1, 1, 0, 1, 2, 2, 0, 3};
  const float sure[] = {0.9f, 0.5f, 0.99f, 0.7f, 0.8f, 0.6f, 0.9f, 0.6f};
  std::vector<float> probabilities(8 * 4, 0.0f);
  for (int t = 0; t < 8; ++t) {
    probabilities[t * 4 + best[t]] = sure[t];
    probabilities[t * 4 + (best[t] + 1) % 4] = 1 - sure[t] - 0.01f;
  }
  LineReading reading = decodeCtc(probabilities.data(), 8, 4, characters);
  EXPECT_EQ(reading.text, "中中a ");
  ASSERT_EQ(reading.characterConfidences.size(), 4u);
  EXPECT_FLOAT_EQ(reading.characterConfidences[0], 0.9f);
  EXPECT_FLOAT_EQ(reading.characterConfidences[2], 0.8f);
  EXPECT_NEAR(reading.confidence, (0.9f + 0.7f + 0.8f + 0.6f) / 4, 1e-6);
  EXPECT_FLOAT_EQ(decodeCtc(probabilities.data(), 0, 4, characters).confidence, 0.0f);
}

TEST(PpOcrProcessing, TheCharacterListHasTheBlankFirstAndTheSpaceLast) {
  auto path = std::filesystem::temp_directory_path() / "kvo-ppocr-keys.txt";
  std::ofstream(path) << "a\n中\r\n";
  auto characters = loadCharacterList(path.string());
  std::filesystem::remove(path);
  EXPECT_EQ(characters, (std::vector<std::string>{"blank", "a", "中", " "}));
  EXPECT_TRUE(loadCharacterList("/nonexistent/keys.txt").empty());
}

TEST(PpOcrProcessing, PagesThatCannotBeReadAreNamed) {
  uint8_t pixel = 0;
  EXPECT_EQ(checkPage(PageView{&pixel, 1, 1, 1, 1}), "");
  EXPECT_NE(checkPage(PageView{nullptr, 1, 1, 1, 1}), "");
  EXPECT_NE(checkPage(PageView{&pixel, 1, 1, 2, 2}), "");
  EXPECT_NE(checkPage(PageView{&pixel, 4, 1, 3, 4}), "");
  EXPECT_NE(checkPage(PageView{&pixel, 40000, 1, 1, 40000}), "");
}

}  // namespace
}  // namespace kvo::onnx::ppocr
