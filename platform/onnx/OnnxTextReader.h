#pragma once

// A text-line reader built on the PP-OCR networks (PP-OCRv4 mobile detection
// and recognition, the v2.0 text-direction classifier) run by ONNX Runtime.
// This header names no ONNX Runtime or OpenCV type: callers see pages,
// quadrilaterals, readings and error values only.
//
// Threading and streams: everything runs on the calling thread (intra- and
// inter-op thread counts 1, no spinning, no telemetry thread) and the
// runtime's logger is a no-op, so the reader prints nothing.
// Failures never escape as exceptions: opening, detecting and reading return
// a ReaderError classifying what went wrong.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kvo::onnx {

// Page pixels as the caller holds them: 1 (grey), 3 (RGB) or 4 (RGBA)
// interleaved 8-bit channels a pixel, rows `stride` bytes apart.
struct PageView {
  const uint8_t* pixels = nullptr;
  int width = 0;
  int height = 0;
  int channels = 1;
  size_t stride = 0;
};

struct Point {
  float x = 0;
  float y = 0;
};

// A text line's quadrilateral in the page's pixels, clockwise from its
// top-left corner as the page lies (rotated where the line is; an
// upside-down line's first corner is where its text ends).
struct TextQuad {
  Point corners[4];
  float score = 0;  // mean text probability inside the line's box, 0..1
};

struct LineReading {
  std::string text;                     // UTF-8
  float confidence = 0;                 // mean of the characters' confidences, 0..1 (0 when empty)
  std::vector<float> characterConfidences;  // one per code point of `text`
  bool turnedHalf = false;              // read turned by 180 degrees (classifier on)
};

struct ReaderError {
  enum class Kind {
    RuntimeMissing,   // the runtime library is not where it was looked for
    RuntimeDamaged,   // not loadable, no entry point, or too old for the API used
    ModelMissing,     // a network or the character list is not in the models directory
    ModelDamaged,     // the runtime refused a network, or its inputs/outputs are not PP-OCR's
    InvalidPage,      // empty, over-sized or inconsistent pixels, or a degenerate quadrilateral
    RunFailed,        // the runtime failed while running a network (out of memory, ...)
  };
  Kind kind = Kind::RunFailed;
  std::string message;
};

template <class T>
using Outcome = std::variant<T, ReaderError>;

enum class GraphOptimization { Disabled, Basic, Extended, All };

struct ReaderOptions {
  // Path of libonnxruntime.so.1. The first library opened serves the whole
  // process (the runtime is never unloaded); later paths are not looked at.
  std::string runtimeLibrary;
  std::string modelsDirectory;  // holds the files named below
  std::string detectorFile = "ch_PP-OCRv4_det_infer.onnx";
  std::string recognizerFile = "ch_PP-OCRv4_rec_infer.onnx";
  std::string classifierFile = "ch_ppocr_mobile_v2.0_cls_infer.onnx";
  std::string characterList = "ppocr_keys_v1.txt";
  bool useClassifier = false;  // decide 0 or 180 degrees for each line before reading it
  GraphOptimization optimization = GraphOptimization::All;
  bool cpuArena = true;
  // Plan each network's buffers from its previous run of the same shape:
  // the input shapes change with every page and line, so the plan is rarely
  // reused and only raises the peak (docs/neural-reader.md).
  bool memoryPattern = false;
  // When set, each network is optimised once and written here under its
  // own name; when the written file exists it is loaded without optimising.
  std::string optimizedModelsDirectory;
  // Detector input: the page is scaled so its longer side is at most this
  // (never enlarged), each side then rounded to a multiple of 32.
  int detectorLimitSide = 960;
  float binaryThreshold = 0.3f;  // text probability that marks a pixel as text
  float boxThreshold = 0.6f;     // mean probability a line's box must reach
  float unclipRatio = 1.5f;      // how far a shrunk text kernel is grown back
};

// The build's own runtime library and models (the set-up script's cache).
ReaderOptions defaultReaderOptions();

class OnnxTextReader {
 public:
  static Outcome<std::unique_ptr<OnnxTextReader>> open(const ReaderOptions& options);
  ~OnnxTextReader();
  OnnxTextReader(const OnnxTextReader&) = delete;
  OnnxTextReader& operator=(const OnnxTextReader&) = delete;

  // Text lines of the page, top to bottom then left to right.
  Outcome<std::vector<TextQuad>> detectLines(const PageView& page);
  // The text inside `quad` (corners as detectLines gives them), cropped
  // from the page straightened.
  Outcome<LineReading> readLine(const PageView& page, const TextQuad& quad);

  // Wall seconds open() spent on each step, for measurement.
  struct OpenTimes {
    double runtime = 0;  // loading the library (0 when already loaded)
    double environment = 0;
    double detector = 0;
    double recognizer = 0;
    double classifier = 0;
  };
  const OpenTimes& openTimes() const;

  struct State;

 private:
  explicit OnnxTextReader(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

const char* kindName(ReaderError::Kind kind);

}  // namespace kvo::onnx
