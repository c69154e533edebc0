#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/TextRecognitionEngine.h"

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
// Simplified and Traditional: when both chi_sim and chi_tra are requested,
// a page is not read with both at once (that mixes the two scripts up) but
// with the one that suits it. To choose, a few text lines from the page's
// layout are read with each Chinese model alone; the model that is clearly
// more confident about the Han characters it wrote in forms of its own
// script (ICU's Simplified/Traditional data tells which those are) wins,
// otherwise the one requested first does. A page with Han is then read
// with that model alone, and each run of words with Latin letters and no
// Han again with the other requested models ("eng"), whose reading is kept
// where it is clearly more confident: read with several models at once,
// Tesseract would read most Chinese lines a second time with the English
// model, to no benefit. A page without Han in the sample is read with all
// requested models but the second Chinese one ("chi_sim+eng").
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

namespace tesseract_text {

// One recognised word of a line.
struct Word {
  std::string text;  // UTF-8, no white space
  // Blank pixels between the ink of the previous word and this one along the
  // line (0 for the first word).
  int gapBefore = 0;
};

// Joins the words of one line into the line's text. Tesseract makes most
// Chinese characters words of their own; a space is written between two
// words unless the boundary between them is a CJK one and the blank there
// is narrow.
//
// A boundary is CJK when the characters on both sides are CJK (Han, kana,
// Hangul, Bopomofo, wide and fullwidth forms, CJK punctuation), or when one
// side is CJK and the other is punctuation that takes the width of the text
// around it: ambiguous-width punctuation such as “ ” … —, or punctuation
// Tesseract reports as a word of its own (often an ASCII comma or colon read
// from a fullwidth one). Narrow means at most half the line's thickness
// (`lineThickness`: the height of a horizontal line), or at most a whole
// thickness when either side is punctuation, whose glyph carries blank
// space of its own. Latin words always keep their spaces.
//
// Fullwidth punctuation: Tesseract reads many fullwidth marks in Chinese
// text as their ASCII forms, while Chinese text also uses the ASCII ones;
// the blank each leaves tells them apart. A , : ; ? or ! standing as a word
// of its own after Han (or fullwidth CJK punctuation) becomes ， ： ； ？ ！
// when the blank before it is at least a quarter of the line's thickness,
// or the blank after it at least 0.42 of it (a fullwidth mark sits in a
// square cell; an ASCII one is set close to its neighbours). A pair of
// parentheses with Han next to either one, inside or out, becomes （ ）
// when the blank before the ( or after the ) is at least 0.45 of the
// thickness (0.25 before fullwidth punctuation): a fullwidth ( sits at the
// right of its cell, ) at the left. A ) whose ( is on an earlier line is
// widened when it follows Han and has that blank after it; a 〈 the line
// does not close (Tesseract's reading of some fullwidth ( ) counts as a (.
// No space is written next to a widened mark. Punctuation among Latin
// letters and digits ("1,234.56", "(see man page)", "a: b") is never
// widened.
std::string joinLineWords(const std::vector<Word>& words, int lineThickness);

// The tessdata language codes for a request's BCP 47 tags, joined by '+'
// ("chi_sim+chi_tra+eng"), duplicates removed, order kept.
std::string tesseractLanguages(const std::vector<std::string>& tags);

}  // namespace tesseract_text

}  // namespace kvo
