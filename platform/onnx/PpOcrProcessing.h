#pragma once

// The PP-OCR networks' pre- and post-processing, as PaddleOCR defines it for
// the PP-OCRv4 mobile models: no ONNX Runtime here, only OpenCV's imgproc
// and Clipper, so every step is tested on synthetic maps.

#include <opencv2/core.hpp>

#include <optional>
#include <string>
#include <vector>

#include "platform/onnx/OnnxTextReader.h"

namespace kvo::onnx::ppocr {

// OpenCV's own parallel loops (Debian builds it with TBB, whose workers it
// starts on the first resize) run on the calling thread instead.
void keepOpenCvOnCallingThread();

// A header over the caller's pixels (no copy); CV_8UC1, CV_8UC3 (RGB) or CV_8UC4 (RGBA).
cv::Mat wrapPage(const PageView& page);
// Empty when the view is usable, otherwise why not.
std::string checkPage(const PageView& page);

// An NCHW float tensor and its shape.
struct Tensor {
  std::vector<float> data;
  int channels = 3;
  int height = 0;
  int width = 0;
};

// The detector's input: the page scaled so its longer side is at most
// `limitSide` (never enlarged), each side a multiple of 32, channels in
// blue-green-red order normalised with ImageNet's mean and deviation.
Tensor detectorInput(const cv::Mat& page, int limitSide);

struct DbParameters {
  float binaryThreshold = 0.3f;
  float boxThreshold = 0.6f;
  float unclipRatio = 1.5f;
  int maxCandidates = 1000;
};

// DB post-processing: the text probability map (mapHeight x mapWidth) to
// line quadrilaterals in the page's pixels, in reading order (top to bottom,
// then left to right within a line's height).
std::vector<TextQuad> linesFromProbability(const float* probability, int mapHeight, int mapWidth,
                                           int pageWidth, int pageHeight, const DbParameters& parameters);

// The quadrilateral's pixels straightened into a blue-green-red image whose
// width runs along the line; a crop at least 1.5 times taller than wide is
// turned a quarter counter-clockwise (a vertical line). Empty when the
// quadrilateral has no area.
cv::Mat cropLine(const cv::Mat& page, const TextQuad& quad);

// The recogniser's input for one crop (height 48, at least 320 wide):
// scaled to the height keeping the aspect, normalised to -1..1, padded with
// zeros on the right.
Tensor recognizerInput(const cv::Mat& crop);
// The text-direction classifier's inputs (48 x 192 each) for one crop:
// scaled to height 48 keeping the aspect, then up to three windows of 192
// pixels (start, middle, end) instead of squeezing a whole line into 192
// pixels as PaddleOCR does: squeezed long Latin lines are classified as
// upside down often enough to spoil a page.
std::vector<Tensor> classifierInputs(const cv::Mat& crop);

// PaddleOCR's character list for CTC decoding: the blank (index 0), one
// symbol per line of the file, then the space. Empty when unreadable.
std::vector<std::string> loadCharacterList(const std::string& path);

// Greedy CTC decoding of a [steps x classes] probability matrix: the best
// class at each step, repeats merged, blanks dropped.
LineReading decodeCtc(const float* probabilities, int steps, int classes,
                      const std::vector<std::string>& characters);

}  // namespace kvo::onnx::ppocr
