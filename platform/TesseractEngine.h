#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "interfaces/TextRecognitionEngine.h"

namespace kvo {

// Text recognition with Tesseract 5 (LSTM models only).
//
// Languages: "zh-Hans" → chi_sim, "zh-Hant" → chi_tra, "en" / "en-*" → eng
// (region subtags allowed, case ignored), in the order requested; other
// tags are ignored, and a request with no supported tag at all gets
// chi_sim+chi_tra+eng. Every requested model must load: a missing one makes
// the engine fail rather than read Chinese with an English model.
// `usesLanguageCorrection` switches the models' dictionaries on or off;
// `level` makes no difference (there is one set of models).
//
// Pages are read as recognition/PageReading decides (which models read what, the
// script, Latin runs, how the page is prepared: light text on a dark ground
// inverted, a crooked page turned straight, a page whose lines run down it
// turned a quarter, small text enlarged, an upside-down page turned back);
// this engine only configures the reader port over Tesseract and Leptonica
// (platform/TesseractReader) it drives. Observations are always in the geometry of the bitmap given: lines read
// on a turned page come back as turned quadrilaterals.
//
// Every requested model file must be present, or the engine fails at once.
// The models themselves are loaded when a page first needs them (an English
// page never loads chi_tra), each combination at most once, and kept; a later
// request with other languages or another language-correction setting
// drops them. Once loading has failed, every later call returns nullopt.
//
// Whatever the environment: nothing is written to the process's stdout or
// stderr (Tesseract's and Leptonica's diagnostics are discarded for the
// whole process once the first engine is made), and recognition runs on the
// calling thread only (Tesseract's OpenMP regions are held to one thread, so
// no worker threads are ever started).
//
// Not thread-safe: use one engine per thread.
class TesseractEngine final : public TextRecognitionEngine {
 public:
  // How Tesseract's OpenMP parallel regions run. `singleThread` is what the
  // helper uses; `libraryDefault` leaves OpenMP alone and only exists so the
  // benchmark can measure the difference.
  enum class Threading { singleThread, libraryDefault };

  // The directory the installed models live in.
  static std::string defaultTessdataDir();

  // `tessdataDir` holds the *.traineddata files; it is always passed to
  // Tesseract explicitly, so TESSDATA_PREFIX has no effect.
  explicit TesseractEngine(std::string tessdataDir = defaultTessdataDir(),
                           Threading threading = Threading::singleThread);
  ~TesseractEngine() override;
  TesseractEngine(const TesseractEngine&) = delete;
  TesseractEngine& operator=(const TesseractEngine&) = delete;

  // Reads rgb8 and rgba8 bitmaps (transparent pixels composited over white)
  // of at most 32767 pixels per side, at the bitmap's resolution when it is
  // known. Returns one observation per text line in Tesseract's reading
  // order, or an empty vector when the page has no text. An observation's
  // corners are the line's bounding box, or, for a line whose baseline
  // slopes, the parallelogram between two parallels to the baseline.
  std::optional<std::vector<TextObservation>> recognize(const Bitmap& image,
                                                        const RecognitionRequest& request) override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kvo
