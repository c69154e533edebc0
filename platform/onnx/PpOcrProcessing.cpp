#include "platform/onnx/PpOcrProcessing.h"

#include <polyclipping/clipper.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>

namespace kvo::onnx::ppocr {
namespace {

// Largest side accepted: OpenCV's Mat and the float maps stay well inside int.
constexpr int kMaxSide = 1 << 15;
// Boxes whose shorter side is under this many map pixels are noise.
constexpr float kMinBoxSide = 3;

// Copies a 1-, 3- (RGB) or 4-channel (RGBA) image as blue-green-red.
cv::Mat toBgr(const cv::Mat& image) {
  cv::Mat bgr;
  if (image.channels() == 1) cv::cvtColor(image, bgr, cv::COLOR_GRAY2BGR);
  else if (image.channels() == 3) cv::cvtColor(image, bgr, cv::COLOR_RGB2BGR);
  else cv::cvtColor(image, bgr, cv::COLOR_RGBA2BGR);
  return bgr;
}

// A BGR image into planar floats, (value / 255 - mean[c]) / deviation[c].
Tensor planar(const cv::Mat& bgr, const float mean[3], const float deviation[3], int paddedWidth) {
  Tensor tensor;
  tensor.height = bgr.rows;
  tensor.width = paddedWidth;
  tensor.data.assign(size_t{3} * bgr.rows * paddedWidth, 0.0f);
  for (int y = 0; y < bgr.rows; ++y) {
    const uint8_t* row = bgr.ptr<uint8_t>(y);
    for (int x = 0; x < bgr.cols; ++x)
      for (int c = 0; c < 3; ++c)
        tensor.data[(size_t(c) * bgr.rows + y) * paddedWidth + x] =
            (row[3 * x + c] / 255.0f - mean[c]) / deviation[c];
  }
  return tensor;
}

// Corners of a rotated rectangle: top-left, top-right, bottom-right,
// bottom-left as PaddleOCR orders them (left pair and right pair by x, each
// pair's upper point first). Returns the rectangle's shorter side.
float orderedCorners(const cv::RotatedRect& rect, cv::Point2f out[4]) {
  cv::Point2f p[4];
  rect.points(p);
  std::sort(p, p + 4, [](const cv::Point2f& a, const cv::Point2f& b) { return a.x < b.x; });
  auto [topLeft, bottomLeft] = p[0].y <= p[1].y ? std::pair{p[0], p[1]} : std::pair{p[1], p[0]};
  auto [topRight, bottomRight] = p[2].y <= p[3].y ? std::pair{p[2], p[3]} : std::pair{p[3], p[2]};
  out[0] = topLeft;
  out[1] = topRight;
  out[2] = bottomRight;
  out[3] = bottomLeft;
  return std::min(rect.size.width, rect.size.height);
}

// Mean probability inside the box, over the box's bounding rectangle.
float boxScore(const cv::Mat& probability, const cv::Point2f box[4]) {
  float left = box[0].x, right = box[0].x, top = box[0].y, bottom = box[0].y;
  for (int i = 1; i < 4; ++i) {
    left = std::min(left, box[i].x), right = std::max(right, box[i].x);
    top = std::min(top, box[i].y), bottom = std::max(bottom, box[i].y);
  }
  int x0 = std::clamp(int(std::floor(left)), 0, probability.cols - 1);
  int x1 = std::clamp(int(std::ceil(right)), 0, probability.cols - 1);
  int y0 = std::clamp(int(std::floor(top)), 0, probability.rows - 1);
  int y1 = std::clamp(int(std::ceil(bottom)), 0, probability.rows - 1);
  cv::Mat mask = cv::Mat::zeros(y1 - y0 + 1, x1 - x0 + 1, CV_8UC1);
  std::vector<cv::Point> shifted(4);
  for (int i = 0; i < 4; ++i) shifted[i] = cv::Point(int(box[i].x) - x0, int(box[i].y) - y0);
  cv::fillPoly(mask, std::vector<std::vector<cv::Point>>{shifted}, cv::Scalar(1));
  return float(cv::mean(probability(cv::Rect(x0, y0, x1 - x0 + 1, y1 - y0 + 1)), mask)[0]);
}

// The box grown by area * ratio / perimeter on every side, round joins
// (Clipper), as the points of the grown outline.
std::vector<cv::Point2f> unclip(const cv::Point2f box[4], float ratio) {
  std::vector<cv::Point2f> outline(box, box + 4);
  double area = cv::contourArea(outline);
  double length = cv::arcLength(outline, true);
  if (length <= 0) return {};
  ClipperLib::Path path;
  for (const auto& p : outline) path.emplace_back(ClipperLib::cInt(std::lround(p.x)), ClipperLib::cInt(std::lround(p.y)));
  ClipperLib::ClipperOffset offset;
  offset.AddPath(path, ClipperLib::jtRound, ClipperLib::etClosedPolygon);
  ClipperLib::Paths grown;
  offset.Execute(grown, area * ratio / length);
  if (grown.size() != 1) return {};
  std::vector<cv::Point2f> points;
  for (const auto& p : grown[0]) points.emplace_back(float(p.X), float(p.Y));
  return points;
}

float distance(const cv::Point2f& a, const cv::Point2f& b) { return float(cv::norm(a - b)); }

Tensor resizedForReading(const cv::Mat& crop, int height, int width) {
  static const float kHalf[3] = {0.5f, 0.5f, 0.5f};
  double aspect = double(crop.cols) / crop.rows;
  int resizedWidth = std::clamp(int(std::ceil(height * aspect)), 1, width);
  cv::Mat resized;
  cv::resize(crop, resized, cv::Size(resizedWidth, height));
  return planar(resized, kHalf, kHalf, width);
}

}  // namespace

void keepOpenCvOnCallingThread() { cv::setNumThreads(0); }

cv::Mat wrapPage(const PageView& page) {
  return cv::Mat(page.height, page.width, CV_8UC(page.channels), const_cast<uint8_t*>(page.pixels), page.stride);
}

std::string checkPage(const PageView& page) {
  if (page.pixels == nullptr || page.width <= 0 || page.height <= 0) return "the page has no pixels";
  if (page.width > kMaxSide || page.height > kMaxSide) return "the page is larger than 32768 pixels a side";
  if (page.channels != 1 && page.channels != 3 && page.channels != 4) return "the page has neither 1, 3 nor 4 channels";
  if (page.stride < size_t(page.width) * page.channels) return "the page's rows are shorter than its width";
  return {};
}

Tensor detectorInput(const cv::Mat& page, int limitSide) {
  static const float kMean[3] = {0.485f, 0.456f, 0.406f};
  static const float kDeviation[3] = {0.229f, 0.224f, 0.225f};
  int longer = std::max(page.cols, page.rows);
  double ratio = longer > limitSide ? double(limitSide) / longer : 1.0;
  auto side = [&](int pixels) { return std::max(int(std::lround(pixels * ratio / 32)) * 32, 32); };
  cv::Mat resized;
  cv::resize(page, resized, cv::Size(side(page.cols), side(page.rows)));
  return planar(toBgr(resized), kMean, kDeviation, resized.cols);
}

std::vector<TextQuad> linesFromProbability(const float* probability, int mapHeight, int mapWidth, int pageWidth,
                                           int pageHeight, const DbParameters& parameters) {
  cv::Mat map(mapHeight, mapWidth, CV_32FC1, const_cast<float*>(probability));
  cv::Mat text = map > parameters.binaryThreshold;
  std::vector<std::vector<cv::Point>> contours;
  cv::findContours(text, contours, cv::RETR_LIST, cv::CHAIN_APPROX_SIMPLE);
  if (contours.size() > size_t(parameters.maxCandidates)) contours.resize(parameters.maxCandidates);

  float scaleX = float(pageWidth) / mapWidth, scaleY = float(pageHeight) / mapHeight;
  std::vector<TextQuad> lines;
  for (const auto& contour : contours) {
    cv::Point2f box[4];
    if (orderedCorners(cv::minAreaRect(contour), box) < kMinBoxSide) continue;
    float score = boxScore(map, box);
    if (score < parameters.boxThreshold) continue;
    std::vector<cv::Point2f> grown = unclip(box, parameters.unclipRatio);
    if (grown.empty()) continue;
    if (orderedCorners(cv::minAreaRect(grown), box) < kMinBoxSide + 2) continue;
    TextQuad quad;
    quad.score = score;
    for (int i = 0; i < 4; ++i) {
      quad.corners[i].x = std::clamp(box[i].x * scaleX, 0.0f, float(pageWidth - 1));
      quad.corners[i].y = std::clamp(box[i].y * scaleY, 0.0f, float(pageHeight - 1));
    }
    cv::Point2f p[4];
    for (int i = 0; i < 4; ++i) p[i] = {quad.corners[i].x, quad.corners[i].y};
    if (int(distance(p[0], p[1])) <= 3 || int(distance(p[0], p[3])) <= 3) continue;
    lines.push_back(quad);
  }
  // Reading order: by top edge, then a neighbour starting within 10 pixels
  // of the same height and further left moves before it.
  std::stable_sort(lines.begin(), lines.end(), [](const TextQuad& a, const TextQuad& b) {
    return a.corners[0].y != b.corners[0].y ? a.corners[0].y < b.corners[0].y : a.corners[0].x < b.corners[0].x;
  });
  for (size_t i = 0; i + 1 < lines.size(); ++i)
    for (size_t j = i + 1; j-- > 0;) {
      const Point& a = lines[j].corners[0];
      const Point& b = lines[j + 1].corners[0];
      if (std::abs(b.y - a.y) < 10 && b.x < a.x) std::swap(lines[j], lines[j + 1]);
      else break;
    }
  return lines;
}

cv::Mat cropLine(const cv::Mat& page, const TextQuad& quad) {
  cv::Point2f p[4];
  for (int i = 0; i < 4; ++i) p[i] = {quad.corners[i].x, quad.corners[i].y};
  int width = int(std::max(distance(p[0], p[1]), distance(p[2], p[3])));
  int height = int(std::max(distance(p[0], p[3]), distance(p[1], p[2])));
  if (width < 1 || height < 1) return {};
  cv::Point2f target[4] = {{0, 0}, {float(width), 0}, {float(width), float(height)}, {0, float(height)}};
  cv::Mat straight;
  cv::warpPerspective(page, straight, cv::getPerspectiveTransform(p, target), cv::Size(width, height),
                      cv::INTER_CUBIC, cv::BORDER_REPLICATE);
  cv::Mat bgr = toBgr(straight);
  if (bgr.rows >= 1.5 * bgr.cols) cv::rotate(bgr, bgr, cv::ROTATE_90_COUNTERCLOCKWISE);
  return bgr;
}

Tensor recognizerInput(const cv::Mat& crop) {
  constexpr int kHeight = 48, kMinWidth = 320;
  double aspect = double(crop.cols) / crop.rows;
  int width = std::max(kMinWidth, int(kHeight * aspect));
  return resizedForReading(crop, kHeight, width);
}

std::vector<Tensor> classifierInputs(const cv::Mat& crop) {
  constexpr int kHeight = 48, kWidth = 192;
  int width = std::max(1, int(std::lround(double(crop.cols) * kHeight / crop.rows)));
  if (width <= kWidth) return {resizedForReading(crop, kHeight, kWidth)};
  cv::Mat scaled;
  cv::resize(crop, scaled, cv::Size(width, kHeight));
  std::vector<Tensor> windows;
  int previous = -kWidth;
  for (int left : {0, (width - kWidth) / 2, width - kWidth}) {
    if (left - previous < kWidth / 2) continue;  // mostly the same pixels as the window before
    windows.push_back(resizedForReading(scaled(cv::Rect(left, 0, kWidth, kHeight)), kHeight, kWidth));
    previous = left;
  }
  return windows;
}

std::vector<std::string> loadCharacterList(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return {};
  std::vector<std::string> characters{"blank"};
  for (std::string line; std::getline(file, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    characters.push_back(line);
  }
  if (characters.size() < 2) return {};
  characters.push_back(" ");
  return characters;
}

LineReading decodeCtc(const float* probabilities, int steps, int classes, const std::vector<std::string>& characters) {
  LineReading reading;
  int previous = -1;
  double sum = 0;
  for (int t = 0; t < steps; ++t) {
    const float* row = probabilities + size_t(t) * classes;
    int best = int(std::max_element(row, row + classes) - row);
    if (best != previous && best != 0 && best < int(characters.size())) {
      reading.text += characters[best];
      reading.characterConfidences.push_back(row[best]);
      sum += row[best];
    }
    previous = best;
  }
  if (!reading.characterConfidences.empty()) reading.confidence = float(sum / reading.characterConfidences.size());
  return reading;
}

}  // namespace kvo::onnx::ppocr
