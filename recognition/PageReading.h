#pragma once

// How a page is read: the order of preparation, sampling and reading, and
// the readings kept, over a reader port (interfaces/TextReader.h) that only
// runs the engine. The reasons for each step are in docs/page-preparation.md
// and docs/recognition-languages.md.
//
//  1. The bitmap is made grey; light text on a dark ground is inverted.
//  2. A crooked page is turned straight (its skew measured by the reader,
//     the decision recognition/PagePreparation's), its corners filled with
//     the page's ground.
//  3. The layout is found. A page whose lines run down it is turned a
//     quarter upright, the way its longest line reads with more confidence.
//  4. Small text is enlarged until its lines reach a readable height.
//  5. With both Chinese models requested, lines are sampled with each and
//     the script decided (recognition/ScriptDecision); a page without Han is
//     read with the Latin models first.
//  6. The page is read; the Latin runs on a Chinese page are read again with
//     the Latin models (recognition/LatinRuns); lines the layout analysis
//     dropped are looked for as sparse text (recognition/UnreadInk), and
//     sampled too when the votes were not settled, the page read again if
//     they then change the script.
//  7. A reading that left a line's width of the page's ink unread is read
//     again with a local threshold and the one reading more kept.
//  8. A doubtful reading that reads better turned half is read again turned
//     half (recognition/HalfTurn).
//  9. Observations are mapped back through every turn onto the page given.
// A page that read as nothing is read once more with a dark surround made
// sheet (recognition/PagePreparation: clearSurround).
//
// Any model failing to load, and memory running out, fail the page.

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "interfaces/Bitmap.h"
#include "interfaces/TextReader.h"
#include "interfaces/TextRecognitionEngine.h"
#include "recognition/GreyPage.h"
#include "recognition/LineGeometry.h"
#include "recognition/PageTurn.h"
#include "recognition/ReadLine.h"
#include "recognition/ReadingPlan.h"
#include "recognition/ScriptDecision.h"

namespace kvo::recognition {

class PageReading {
 public:
  // Reads with `reader` (which must outlive this) the models of `plan`.
  PageReading(TextReader& reader, ReadingPlan plan);
  ~PageReading();
  PageReading(const PageReading&) = delete;
  PageReading& operator=(const PageReading&) = delete;

  // One observation per text line in reading order, corners normalised to
  // `image` (origin bottom-left); empty when the page holds no text.
  // nullopt when the bitmap is not an rgb8 or rgba8 one the reader can take
  // (a side over its largest), a model fails to load, or memory runs out.
  std::optional<std::vector<TextObservation>> read(const Bitmap& image);

 private:
  struct Page;
  struct Pass;
  using Observations = std::vector<TextObservation>;

  std::optional<Observations> readGrey(const GreyImage& grey, int ppi, int level);
  bool prepare(Page& page, int level);
  std::optional<PageTurn> straighten(const GreyImage& grey, int level, GreyImage& turned);
  std::optional<bool> uprightTurn(const Page& page);
  bool findLayout(Page& page);
  std::optional<Script> chooseScript(const Page& page, SampleReading& sample);
  SampleReader sampleReader(const Page& page, const std::string& models);
  Script decide(const SampleReading& sample, const Page& page);
  bool readWithScript(const Page& page, Script script, Pass& pass);
  bool readDroppedLines(const Page& page, Script script, const InkBits* ink, Pass& pass);
  Observations collect(const TextReader::PageText& text, const Page& page, Script script, std::vector<Box>& boxes);
  bool rereadLatinRuns(ReadLine& line, const Page& page, const InkBits* ink, int resolution);
  void readLocally(const Page& page, Script script, Pass& pass);
  std::optional<Observations> localReading(const Page& page, Script script, std::vector<Box>& withText);
  bool turnBackIfUpsideDown(const Page& page, int level, Pass& pass);
  const ScriptForms& forms(const std::string& code);

  TextReader& reader_;
  ReadingPlan plan_;
  // The forms of the script of "chi_sim" or "chi_tra", made on first use.
  std::map<std::string, std::unique_ptr<ScriptForms>> scriptForms_;
  // Set while a page found upside down is read turned half, so that its
  // reading is not checked for a half turn again.
  bool turningHalf_ = false;
};

}  // namespace kvo::recognition
