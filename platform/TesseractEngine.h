#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/TextRecognitionEngine.h"

namespace kvo {

// Text recognition with Tesseract 5 (LSTM models only).
//
// Languages: "zh-Hans" → chi_sim, "zh-Hant" → chi_tra, "en" / "en-*" → eng,
// in the order requested; other tags are ignored, and a request with no
// supported tag at all uses chi_sim+chi_tra+eng. Every requested model must
// load: a missing one makes the engine fail rather than silently read
// Chinese with an English model.
//
// The engine loads its models on the first `recognize` and keeps them; a
// later request with other languages or another language-correction setting
// reloads them. Once loading has failed, every later call returns nullopt.
//
// Guarantees, whatever the environment: nothing is written to the process's
// stdout or stderr (Tesseract's and Leptonica's diagnostics are discarded),
// and recognition runs on the calling thread only (Tesseract's OpenMP
// regions are kept at one thread, so no worker threads are ever started).
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

  // Accepts rgb8 and rgba8 (composited over white) bitmaps of at most
  // 32767 pixels per side. Returns one observation per text line in
  // Tesseract's reading order; an empty vector when the page has no text.
  std::optional<std::vector<TextObservation>> recognize(const Bitmap& image,
                                                        const RecognitionRequest& request) override;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

namespace tesseract_text {

// One recognised word of a line and its horizontal and vertical extent in
// pixels (top-left origin).
struct Word {
  std::string text;  // UTF-8, no whitespace
  int left = 0, top = 0, right = 0, bottom = 0;
};

// Joins the words of one line into the line's text. Tesseract makes every
// Chinese character a word of its own; a space is written between two words
// unless the characters on both sides of the boundary are CJK (Han, kana,
// Hangul, Bopomofo, wide or fullwidth forms and punctuation, and
// ambiguous-width punctuation such as “ ” … — next to one of those) and the
// blank between the two boxes is narrower than half the line's thickness
// (its smaller side) — a full thickness when either side is punctuation,
// whose glyph already carries blank space. Latin words always keep their
// spaces.
std::string joinLineWords(const std::vector<Word>& words, int lineThickness);

// The tessdata language codes for a request's BCP 47 tags, joined by '+'
// ("chi_sim+chi_tra+eng"), duplicates removed, order kept.
std::string tesseractLanguages(const std::vector<std::string>& tags);

}  // namespace tesseract_text

}  // namespace kvo
