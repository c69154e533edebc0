#include "recognition/PageReading.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <new>
#include <utility>

#include "recognition/HalfTurn.h"
#include "recognition/LatinRuns.h"
#include "recognition/LineText.h"
#include "recognition/PagePreparation.h"
#include "recognition/PageTurn.h"
#include "recognition/UnreadInk.h"

namespace kvo::recognition {

using Segmentation = TextReader::Segmentation;
using Thresholding = TextReader::Thresholding;
using RegionTurn = TextReader::RegionTurn;

namespace {

bool holdsText(const std::vector<TextObservation>& observations) {
  return std::any_of(observations.begin(), observations.end(),
                     [](const TextObservation& o) { return o.candidate.has_value(); });
}

// The boxes of `boxes` whose observations hold text.
std::vector<Box> withText(const std::vector<TextObservation>& observations, const std::vector<Box>& boxes) {
  std::vector<Box> kept;
  for (size_t i = 0; i < observations.size(); ++i)
    if (observations[i].candidate) kept.push_back(boxes[i]);
  return kept;
}

std::vector<Box> halved(std::vector<Box> boxes) {
  for (Box& b : boxes) b = Box{b.left / 2, b.top / 2, (b.right + 1) / 2, (b.bottom + 1) / 2};
  return boxes;
}

}  // namespace

// The page as it is read: the grey page given, or a copy of it turned
// straight, turned upright and/or enlarged; the turns made, in order
// (observations are mapped back through them in reverse), and its layout.
struct PageReading::Page {
  const GreyImage* grey = nullptr;
  int ppi = 0;
  int width() const { return grey->width; }
  int height() const { return grey->height; }
  GreyImage turned, upright, enlarged;
  std::vector<PageTurn> turns;
  TextReader::Layout layout;
};

// One reading of a page: its observations, the boxes of its lines with text
// (as read on the page), and the lines the layout analysis dropped that the
// sparse reading found.
struct PageReading::Pass {
  std::optional<Observations> result;
  std::vector<Box> readBoxes;
  std::vector<Box> dropped;
};

PageReading::PageReading(TextReader& reader, ReadingPlan plan) : reader_(reader), plan_(std::move(plan)) {}

PageReading::~PageReading() = default;

const ScriptForms& PageReading::forms(const std::string& code) {
  auto& slot = scriptForms_[code];
  if (!slot) slot = std::make_unique<ScriptForms>(code);
  return *slot;
}

std::optional<std::vector<TextObservation>> PageReading::read(const Bitmap& image) {
  const int64_t largest = reader_.largestSide();
  if (!image.valid() || image.width() <= 0 || image.height() <= 0 || image.width() > largest ||
      image.height() > largest ||
      image.stride() < static_cast<size_t>(image.width()) * static_cast<size_t>(bytesPerPixel(image.format())))
    return std::nullopt;
  const int width = static_cast<int>(image.width());
  const int height = static_cast<int>(image.height());
  const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
  // Engines binarise and recognise a grey image; one byte per pixel keeps
  // their copies a quarter of the size of RGBA.
  GreyImage grey;
  if (!toGrey(image, grey)) return std::nullopt;
  const GroundSplit split = splitGround(grey.data, width, height);
  if (split.darkGround) invertGrey(grey.data, pixels);
  const int ppi = roundedResolution(image.pixelsPerInch());
  std::optional<Observations> result = readGrey(grey, ppi, split.level);
  // A sheet photographed on a darker surface can read as nothing at all: the
  // page's grey levels separate best between the surface and the sheet, and
  // grey print falls on the sheet's side. Only such a page is read once more,
  // with the surround made sheet, looked for on the page as given (a surface
  // covering most of the photograph makes it look like light text on dark).
  if (!result || reader_.failed() || holdsText(*result)) return result;
  if (split.darkGround) invertGrey(grey.data, pixels);
  GreyImage sheet;
  if (!clearSurround(grey, split.givenLevel, sheet)) return result;
  const GroundSplit sheetSplit = splitGround(sheet.data, width, height);
  if (sheetSplit.darkGround) invertGrey(sheet.data, pixels);
  std::optional<Observations> again = readGrey(sheet, ppi, sheetSplit.level);
  if (reader_.failed()) return std::nullopt;
  if (again && holdsText(*again)) result = std::move(again);
  return result;
}

std::optional<PageTurn> PageReading::straighten(const GreyImage& grey, int level, GreyImage& turned) {
  const int reduction = skewReduction(grey.width);
  const SkewMeasure whole = reader_.measureSkew(grey, level, reduction, 0, grey.height);
  std::optional<SkewMeasure> top, bottom;
  if (asksForHalves(whole)) {
    top = reader_.measureSkew(grey, level, reduction, 0, grey.height / 2);
    bottom = reader_.measureSkew(grey, level, reduction, grey.height / 2, grey.height);
  }
  const std::optional<double> degrees = straighteningAngle(whole, top, bottom);
  if (!degrees) return std::nullopt;
  // Clockwise is positive for the skew and the turn alike. The corners the
  // turn brings in white take the page's ground instead (fillTurnedCorners).
  const double radians = *degrees * M_PI / 180.0;
  if (!reader_.rotate(grey, radians, turned)) return std::nullopt;
  const PageTurn turn{radians, grey.width, grey.height, turned.width, turned.height};
  fillTurnedCorners(turn, groundLevel(grey, level), turned);
  return turn;
}

bool PageReading::findLayout(Page& page) {
  std::optional<TextReader::Layout> layout =
      reader_.findLayout(plan_.layout, *page.grey, page.ppi);
  if (!layout) return false;
  page.layout = std::move(*layout);
  return true;
}

// Which quarter turn puts a page whose lines run down it upright: true
// clockwise, false counter-clockwise; nullopt when no line reads either way.
// The engine takes such lines for vertical writing and has no way to tell
// which way the glyphs stand, so the longest line, with the blank around it,
// is read turned each way and the more confident reading says which.
std::optional<bool> PageReading::uprightTurn(const Page& page) {
  const std::vector<Box>& lines = page.layout.lines;
  const auto longest = std::max_element(lines.begin(), lines.end(),
                                        [](const Box& a, const Box& b) { return a.height() < b.height(); });
  if (longest == lines.end() || longest->height() <= longest->width()) return std::nullopt;
  // Turned, the line's width is its height: its padding is a line's.
  const int pad = linePadding(Box{0, 0, longest->height(), longest->width()});
  const Box region{longest->left - pad, longest->top - pad, longest->right + pad, longest->bottom + pad};
  auto confidence = [&](RegionTurn turn) {
    return reader_.readingConfidence(plan_.layout, *page.grey, region, turn);
  };
  const int clockwise = confidence(RegionTurn::clockwise);
  const int counter = confidence(RegionTurn::counterClockwise);
  if (clockwise < 0 && counter < 0) return std::nullopt;
  return clockwise >= counter;
}

// Straight, upright, enlarged as the page needs, its layout found. False when
// a model fails to load.
bool PageReading::prepare(Page& page, int level) {
  if (const auto turn = straighten(*page.grey, level, page.turned)) {
    page.turns.push_back(*turn);
    page.grey = &page.turned;
  }
  if (!findLayout(page)) return false;
  std::optional<bool> clockwise;
  if (page.layout.mostlyDown()) clockwise = uprightTurn(page);
  if (reader_.failed()) return false;
  if (clockwise && turnGreyQuarter(*page.grey, *clockwise, page.upright)) {
    page.turns.push_back(PageTurn{(*clockwise ? 1 : -1) * M_PI / 2, page.width(), page.height(), page.height(),
                                  page.width()});
    page.grey = &page.upright;
    if (!findLayout(page)) return false;
  }
  // Small text is read from a page enlarged so that its lines reach a
  // readable height; observations are normalised to the page read, so they
  // stand for the same places on the page given.
  const int factor =
      enlargement(lineThicknesses(page.layout.lines), page.width(), page.height(), reader_.largestSide());
  if (factor > 1 && enlargeGrey(*page.grey, factor, page.enlarged)) {
    page.grey = &page.enlarged;
    page.ppi *= factor;
    if (!findLayout(page)) return false;
  }
  return true;
}

SampleReader PageReading::sampleReader(const Page& page, const std::string& models) {
  return [this, &page, models](const Box& line, int widest) {
    HanReading reading;
    if (reader_.failed()) return reading;
    const std::optional<Box> region = clipToPage(sampleRegion(line, page.width(), widest), page.width(), page.height());
    if (!region) return reading;
    const ScriptForms& modelForms = forms(models);
    for (const TextReader::Symbol& s :
         reader_.readSymbols(models, *page.grey, *region, page.layout.resolution))
      reading.addSymbol(s.text.c_str(), s.confidence, modelForms, s.box);
    return reading;
  };
}

// When the votes did not settle, what the glyphs read in two forms look like
// weighs in (recognition/GlyphForms).
Script PageReading::decide(const SampleReading& sample, const Page& page) {
  std::vector<double> leans;
  if (!sample.votes.forms.empty() && !settled(sample.votes))
    leans = formLeans(page.grey->data, page.width(), page.height(), sample.votes.forms, plan_.first == "chi_tra",
                      [this](UChar32 c, bool traditional, int em) {
                        return reader_.drawReferenceGlyph(c, traditional, em);
                      });
  return decideScript(sample, leans);
}

// The script of the page's horizontal lines, in reading order; nullopt when
// a model fails to load.
std::optional<Script> PageReading::chooseScript(const Page& page, SampleReading& sample) {
  std::vector<Box> lines;
  std::copy_if(page.layout.lines.begin(), page.layout.lines.end(), std::back_inserter(lines), isSampleLine);
  if (lines.empty()) return Script::noHan;
  sample = readSample(sampleOrder(lines), sampleReader(page, plan_.first), sampleReader(page, plan_.second));
  if (reader_.failed()) return std::nullopt;
  if (sample.linesWithHan == 0) return Script::noHan;
  return decide(sample, page);
}

bool PageReading::rereadLatinRuns(ReadLine& line, const Page& page, const InkBits* ink, int resolution) {
  const std::vector<LatinRun> runs = latinRuns(line.words, line.box.thickness());
  bool changed = false;
  for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
    const std::optional<Box> region = runRegion(line, *run, page.width(), page.height());
    if (!region) continue;
    ReadLine again;
    if (auto parts =
            reader_.readRegion(plan_.latin, *page.grey, *region, resolution, ink))
      again = joinParts(std::move(*parts), line.box, ink);
    if (reader_.failed()) return false;
    if (replaceRun(line, *run, std::move(again), ink)) changed = true;
  }
  if (changed) line.confidence = static_cast<float>(meanConfidence(line.confidences, 0, line.confidences.size()));
  return true;
}

// The lines of `text` (read on `page`) as observations; `boxes` gets each
// one's line box, in the same order. On a page with Han, the Latin runs are
// read again with the Latin models. Empty when those fail to load.
PageReading::Observations PageReading::collect(const TextReader::PageText& text, const Page& page, Script script,
                                               std::vector<Box>& boxes) {
  Observations observations;
  std::vector<ReadLine> lines = text.lines;
  if (script != Script::noHan && !plan_.latin.empty())
    for (ReadLine& line : lines)
      if (rereadsLine(line) && !rereadLatinRuns(line, page, text.ink.bits(), text.resolution))
        return observations;
  observations.reserve(lines.size());
  for (const ReadLine& line : lines) {
    if (!line.placed) continue;
    TextObservation o;
    std::string joined = joinLineWords(line.words, line.box.thickness());
    if (!joined.empty())
      o.candidate = RecognizedCandidate{std::move(joined), std::clamp(line.confidence / 100.0f, 0.0f, 1.0f)};
    const Corners corners = lineCorners(line.box, line.drop, page.width(), page.height());
    o.topLeft = corners.topLeft;
    o.topRight = corners.topRight;
    o.bottomRight = corners.bottomRight;
    o.bottomLeft = corners.bottomLeft;
    observations.push_back(std::move(o));
    boxes.push_back(line.box);
  }
  return observations;
}

// Lines the layout analysis dropped are looked for on the rest of the page,
// the lines read blanked out, as sparse text; what is found there is kept
// where it holds glyph-sized ink no line read covers. A line the reading
// found no text on (a frame, a picture) covers nothing.
bool PageReading::readDroppedLines(const Page& page, Script script, const InkBits* ink, Pass& pass) {
  const std::vector<Box> unread = reader_.failed() || ink == nullptr ? std::vector<Box>{}
                                                                     : unreadGlyphs(*ink, pass.readBoxes);
  GreyImage rest;
  if (unread.empty() || !blankLines(*page.grey, pass.readBoxes, rest)) return true;
  std::optional<TextReader::PageText> text = reader_.readPage(plan_.pageModels(script), Segmentation::sparse,
                                                              Thresholding::global, rest,
                                                              page.ppi);
  if (!text) return !reader_.failed();
  std::vector<Box> more;
  Observations again = collect(*text, page, script, more);
  for (size_t i = 0; i < again.size(); ++i)
    if (holdsUnreadGlyph(more[i], unread)) {
      if (again[i].candidate) pass.readBoxes.push_back(more[i]);
      pass.result->push_back(std::move(again[i]));
      pass.dropped.push_back(more[i]);
    }
  return true;
}

// Reads the page with the models for `script` into `pass`. False when a
// model fails to load.
bool PageReading::readWithScript(const Page& page, Script script, Pass& pass) {
  pass = Pass{};
  std::optional<TextReader::PageText> text = reader_.readPage(
      plan_.pageModels(script), Segmentation::page, Thresholding::global, *page.grey, page.ppi);
  if (!text) return !reader_.failed();
  std::vector<Box> read;
  pass.result = collect(*text, page, script, read);
  pass.readBoxes = withText(*pass.result, read);
  return readDroppedLines(page, script, text->ink.bits(), pass);
}

// The page read with the local threshold; `withText` gets the boxes of its
// lines with text. nullopt when it cannot be read.
std::optional<PageReading::Observations> PageReading::localReading(const Page& page, Script script,
                                                                   std::vector<Box>& withTextBoxes) {
  std::optional<TextReader::PageText> text = reader_.readPage(
      plan_.pageModels(script), Segmentation::page, Thresholding::local, *page.grey, page.ppi);
  if (!text) return std::nullopt;
  std::vector<Box> boxes;
  Observations again = collect(*text, page, script, boxes);
  if (reader_.failed()) return std::nullopt;
  withTextBoxes = withText(again, boxes);
  return again;
}

// Engines binarise a page at one level for all of it. Where the light falls
// off across a photographed sheet, the sheet's own levels can span more than
// the print's contrast, that level takes the darker part of the sheet, and
// the end of every line on it, for ink. So what the reading left unread is
// measured on the page's ink as a local threshold finds it, and a reading
// that left half a line's width of it unread is read again with the local
// threshold, kept only when it leaves clearly less unread. A reading with no
// text at all is read so too, and replaced by any reading with text. Reading
// every page that way is no answer: it loses faint print
// (docs/page-preparation.md).
void PageReading::readLocally(const Page& page, Script script, Pass& pass) {
  std::vector<Box> againBoxes;
  if (pass.readBoxes.empty()) {
    std::optional<Observations> again = localReading(page, script, againBoxes);
    if (again && !againBoxes.empty()) pass.result = std::move(again);
    return;
  }
  // A window two typical lines across on each side holds ground around any glyph.
  const InkPage local = reader_.localInkAtHalf(*page.grey,
                                               2 * medianThickness(pass.readBoxes));
  if (local.bits() == nullptr) return;
  const UnreadWidth first = unreadWidth(*local.bits(), halved(pass.readBoxes));
  if (!leavesALineUnread(first)) return;
  std::optional<Observations> again = localReading(page, script, againBoxes);
  if (!again || againBoxes.empty()) return;
  if (readsClearlyMore(unreadWidth(*local.bits(), halved(againBoxes)), first)) pass.result = std::move(again);
}

// A doubtful reading that reads better turned half is replaced by the page
// read turned half (recognition/HalfTurn). False when a model fails to load.
bool PageReading::turnBackIfUpsideDown(const Page& page, int level, Pass& pass) {
  if (turningHalf_ || !doubtfulReading(*pass.result)) return true;
  const bool upsideDown =
      readsUpsideDown(boxesWithText(*pass.result, page.width(), page.height()), [&](const Box& line, bool turned) {
        if (reader_.failed()) return -1;
        return reader_.readingConfidence(plan_.withoutHan, *page.grey,
                                         sampleRegion(line, page.width(), kWholeLine),
                                         turned ? RegionTurn::half : RegionTurn::none);
      });
  GreyImage half;
  if (reader_.failed()) return false;
  if (!upsideDown || !turnGreyHalf(*page.grey, half)) return true;
  turningHalf_ = true;
  std::optional<Observations> again = readGrey(half, page.ppi, level);
  turningHalf_ = false;
  if (reader_.failed()) return false;
  if (again) {
    const PageTurn back{M_PI, page.width(), page.height(), page.width(), page.height()};
    for (TextObservation& o : *again) back.mapBack(o);
    pass.result = std::move(again);
  }
  return true;
}

std::optional<PageReading::Observations> PageReading::readGrey(const GreyImage& grey, int ppi, int level) {
  Page page;
  page.grey = &grey;
  page.ppi = ppi;
  Pass pass;
  try {
    if (!prepare(page, level)) return std::nullopt;
    Script script = Script::noHan;
    SampleReading sample;
    if (plan_.choosesScript()) {
      const std::optional<Script> chosen = chooseScript(page, sample);
      if (!chosen) return std::nullopt;
      script = *chosen;
    }
    if (!readWithScript(page, script, pass)) return std::nullopt;
    // The sample saw only the lines the first layout analysis found. When its
    // votes were not settled and the page read found more, those are sampled
    // too, and a page the votes then give to the other model is read again.
    if (script != Script::noHan && !pass.dropped.empty() && !reader_.failed() && !settled(sample.votes)) {
      extendSample(sample, pass.dropped, sampleReader(page, plan_.first), sampleReader(page, plan_.second));
      const Script again = reader_.failed() ? script : decide(sample, page);
      if (again != script) {
        script = again;
        if (!readWithScript(page, script, pass)) return std::nullopt;
      }
    }
    if (pass.result && !reader_.failed()) readLocally(page, script, pass);
    if (pass.result && !reader_.failed() && !turnBackIfUpsideDown(page, level, pass)) return std::nullopt;
    if (reader_.failed()) return std::nullopt;
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
  if (pass.result)
    for (auto turn = page.turns.rbegin(); turn != page.turns.rend(); ++turn)
      for (TextObservation& o : *pass.result) turn->mapBack(o);
  return std::move(pass.result);
}

}  // namespace kvo::recognition
