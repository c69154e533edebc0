#include "platform/TesseractEngine.h"

#include <leptonica/allheaders.h>
#include <omp.h>
#include <sys/stat.h>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <map>
#include <new>
#include <utility>

#include "platform/ReferenceGlyphs.h"
#include "platform/TesseractReading.h"
#include "recognition/HalfTurn.h"
#include "recognition/LatinRuns.h"
#include "recognition/LineText.h"
#include "recognition/PagePreparation.h"
#include "recognition/PageRaster.h"
#include "recognition/PageTurn.h"
#include "recognition/ReadingPlan.h"
#include "recognition/ScriptDecision.h"
#include "recognition/UnreadInk.h"

namespace kvo {

using recognition::Box;
using recognition::GreyImage;
using recognition::HanReading;
using recognition::InkBits;
using recognition::ReadingPlan;
using recognition::ReadLine;
using recognition::Script;
using recognition::ScriptForms;
using tesseract_reading::InkMap;
using tesseract_reading::kMaxSide;
using tesseract_reading::Layout;

namespace {


// ---------------------------------------------------------------------------
// Silence. Tesseract writes its diagnostics with tprintf to the global
// `debug_file` (stderr when empty); Leptonica writes through lept_stderr,
// filtered by a global severity. Both are process-wide, so they are set once
// for the process before the first engine touches either library.

void discardLeptonicaMessage(const char*) {}

void silenceLibrariesOnce() {
  static const bool done = [] {
    setMsgSeverity(L_SEVERITY_NONE);
    leptSetStderrHandler(&discardLeptonicaMessage);
    // A global parameter: setting it through any instance sets it for all.
    tesseract::TessBaseAPI api;
    api.SetVariable("debug_file", "/dev/null");
    return true;
  }();
  (void)done;
}

// ---------------------------------------------------------------------------
// Threads. Debian's libtesseract runs parts of the LSTM in OpenMP parallel
// regions, mostly with explicit num_threads clauses, so omp_set_num_threads
// does not reach them and OMP_THREAD_LIMIT is read only at process start.
// With the maximum number of active levels at 0, no region is active and
// libgomp gives every region exactly one thread: the calling one, without
// ever starting its pool. The setting is an ICV of the calling thread; it is
// restored afterwards so code outside recognition is unaffected.
class SingleThreadRegions {
 public:
  explicit SingleThreadRegions(bool enabled) : enabled_(enabled) {
    if (enabled_) {
      saved_ = omp_get_max_active_levels();
      omp_set_max_active_levels(0);
    }
  }
  ~SingleThreadRegions() {
    if (enabled_) omp_set_max_active_levels(saved_);
  }
  SingleThreadRegions(const SingleThreadRegions&) = delete;
  SingleThreadRegions& operator=(const SingleThreadRegions&) = delete;

 private:
  bool enabled_;
  int saved_ = 0;
};

// A page is read in Tesseract's automatic page segmentation, a line or a
// region of one as a single line, and the rest of a page whose layout
// analysis dropped lines as sparse text: what is left there is remnants
// (lines, and the starts of lines whose other words were read) in no layout
// of columns and blocks, which the automatic segmentation drops again.
enum class ReaderKind { page, line, sparse };

// Tesseract's thresholding_method: its global Otsu level, which every page
// is read with first, and Sauvola's local threshold.
constexpr const char* kGlobalThresholding = "0";
constexpr const char* kSauvolaThresholding = "2";
// The smallest side a page read with Sauvola's threshold may have:
// Tesseract's window is at least 7 pixels, and Leptonica's tiles must hold
// a window and 3 pixels more. On a smaller page the thresholding fails, and
// Tesseract 5.3 then loses its copy of the page.
constexpr int kLeastSauvolaSide = 7 + 3;

}  // namespace

struct TesseractEngine::State {
  std::string tessdataDir;
  Threading threading;
  bool failed = false;
  // What the loaded models were loaded for; a request for anything else
  // drops them.
  bool configured = false;
  std::string languages;
  bool correction = false;
  ReadingPlan plan;
  // Loaded on first use, each at most once, keyed by models: those reading
  // pages ("chi_sim+eng", "chi_sim", ...), sample lines ("chi_sim",
  // "chi_tra") and Latin runs ("eng"). Loading a model costs about as much
  // as reading a page with it, so one instance serves pages and lines alike:
  // a Chinese page loads the two Chinese models and the Latin ones once each.
  std::map<std::string, std::unique_ptr<tesseract::TessBaseAPI>> readers;
  // The forms of the script of "chi_sim" or "chi_tra", made on first use.
  std::map<std::string, std::unique_ptr<ScriptForms>> scriptForms;
  // Set while a page found upside down is read turned half, so that its
  // reading is not checked for a half turn again.
  bool turningHalf = false;
  // The reference typefaces glyphs read in two forms are compared with,
  // opened when a page's votes first fail to settle.
  std::unique_ptr<ReferenceGlyphs> referenceGlyphs;

  bool configure(const RecognitionRequest& request);
  // Reads the prepared grey page `grey` (width × height, dark ink on a
  // light ground, `level` its separating level): turned straight, turned
  // upright, enlarged as it needs, its script chosen, read, and its
  // observations mapped back onto it. nullopt when a model fails to load
  // (`failed` tells), recognition fails or memory runs out.
  std::optional<std::vector<TextObservation>> read(const GreyImage& grey, int width, int height, int ppi, int level);
  tesseract::TessBaseAPI* reader(const std::string& languages, ReaderKind kind);
  void dropReaders() { readers.clear(); }
  const ScriptForms& forms(const std::string& code) {
    auto& slot = scriptForms[code];
    if (!slot) slot = std::make_unique<ScriptForms>(code);
    return *slot;
  }
  // Which quarter turn puts a page whose `lines` run down it upright:
  // true clockwise, false counter-clockwise; nullopt when no line reads
  // either way.
  std::optional<bool> uprightTurn(const std::vector<Box>& lines, const GreyImage& grey, int width, int height);
  // The plan's two Chinese models as readers of sample lines of the page
  // `grey` (recognition/ScriptDecision); the second model is loaded when a
  // line first asks for it, which a page without Han never does. `first` is
  // null when its model fails to load (`failed` tells).
  struct SampleReaders {
    recognition::SampleReader first, second;
  };
  SampleReaders sampleReaders(const GreyImage& grey, int width, int height, int resolution);
  // Reads sample lines among the page's `lines` (its layout) of the page
  // `grey` with `readers` into `sample`, and decides on them.
  Script chooseScript(const std::vector<Box>& lines, const GreyImage& grey, int width, int height,
                      const SampleReaders& readers, recognition::SampleReading& sample);
  // The decision on `sample`, read from the page `grey`: when its votes did
  // not settle, what the glyphs read in two forms look like weighs in
  // (recognition/GlyphForms).
  Script decide(const recognition::SampleReading& sample, const GreyImage& grey, int width, int height);
  // The page's lines as `api` read them, blanks between words measured on
  // `ink` (the binarised page `api` read); with `boxes`, each observation's
  // line box, in the same order. With `latinLanguages`, the Latin runs on
  // them are read again from `grey` with those models (recognition/LatinRuns).
  std::vector<TextObservation> collect(tesseract::TessBaseAPI& api, double width, double height,
                                       const GreyImage& grey, const InkMap& ink, const std::string& latinLanguages,
                                       std::vector<Box>* boxes = nullptr);
  // Tesseract binarises a page at one level for all of it. Where the light
  // falls off across a photographed sheet, the sheet's own levels can span
  // more than the print's contrast, and that level then takes the darker
  // part of the sheet, and the end of every line on it, for ink: the
  // reading stops where the light does. So what the reading `observations`
  // (its lines with text `lines`) left unread is measured on the page's ink
  // as a local threshold finds it (recognition/UnreadInk), and a reading
  // that left half a line's width of it unread is read again with Tesseract's
  // local (Sauvola) threshold; the second reading replaces the first only
  // when it leaves clearly less unread. A reading with no text at all (faint
  // thin print where the light falls off) is read so too, and replaced by
  // any reading with text. Reading every page that way is no
  // answer: it loses faint, low-contrast print (docs/page-preparation.md).
  void readLocally(tesseract::TessBaseAPI& api, const GreyImage& page, int width, int height, int ppi,
                   const std::string& latinLanguages, const std::vector<Box>& lines,
                   std::vector<TextObservation>& observations);
  // False when the Latin models fail to load.
  bool rereadLatinRuns(ReadLine& line, const std::string& languages, const GreyImage& grey, const InkBits* ink,
                       int width, int height, int resolution);
};

bool TesseractEngine::State::configure(const RecognitionRequest& request) {
  if (failed) return false;
  const std::string wanted = recognition::modelCodes(request.languages);
  if (configured && wanted == languages && request.usesLanguageCorrection == correction) return true;
  dropReaders();
  configured = false;
  // Every requested model must be there, even one this page will not need.
  for (const auto& code : recognition::splitCodes(wanted)) {
    struct stat st {};
    const std::string file = tessdataDir + "/" + code + ".traineddata";
    if (::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
      failed = true;
      return false;
    }
  }
  configured = true;
  languages = wanted;
  correction = request.usesLanguageCorrection;
  plan = ReadingPlan::forModels(wanted);
  return true;
}

tesseract::TessBaseAPI* TesseractEngine::State::reader(const std::string& wanted, ReaderKind kind) {
  const auto mode = kind == ReaderKind::page   ? tesseract::PSM_AUTO
                    : kind == ReaderKind::line ? tesseract::PSM_SINGLE_LINE
                                               : tesseract::PSM_SPARSE_TEXT;
  if (auto found = readers.find(wanted); found != readers.end()) {
    found->second->SetPageSegMode(mode);
    return found->second.get();
  }
  if (failed) return nullptr;
  // Dictionaries are init-only parameters. The LSTM recogniser loads its
  // own word lists only when it decodes with the ratings matrix
  // (lstm_use_matrix), so that is switched off with the legacy ones.
  const char* dictionaries = correction ? "1" : "0";
  const std::vector<std::string> names = {"load_system_dawg", "load_freq_dawg",   "load_unambig_dawg",
                                          "load_punc_dawg",   "load_number_dawg", "load_bigram_dawg",
                                          "lstm_use_matrix"};
  const std::vector<std::string> values(names.size(), dictionaries);
  auto api = std::make_unique<tesseract::TessBaseAPI>();
  if (api->Init(tessdataDir.c_str(), wanted.c_str(), tesseract::OEM_LSTM_ONLY, nullptr, 0, &names, &values,
                false) == 0) {
    // Tesseract carries on when some of the languages fail to load; the
    // engine does not.
    std::vector<std::string> loaded;
    api->GetLoadedLanguagesAsVector(&loaded);
    bool all = true;
    for (const auto& code : recognition::splitCodes(wanted))
      all = all && std::find(loaded.begin(), loaded.end(), code) != loaded.end();
    if (all) {
      api->SetPageSegMode(mode);
      return readers.emplace(wanted, std::move(api)).first->second.get();
    }
  }
  api->End();
  failed = true;
  dropReaders();
  return nullptr;
}

std::optional<bool> TesseractEngine::State::uprightTurn(const std::vector<Box>& lines, const GreyImage& grey,
                                                      int width, int height) {
  const auto longest = std::max_element(lines.begin(), lines.end(),
                                        [](const Box& a, const Box& b) { return a.height() < b.height(); });
  if (longest == lines.end() || longest->height() <= longest->width()) return std::nullopt;
  tesseract::TessBaseAPI* api = reader(plan.layout, ReaderKind::line);
  if (api == nullptr) return std::nullopt;
  // The line with its blank around it; turned, its height is the line's width.
  const int pad = std::max(2, longest->width() / 4);
  const Box region{longest->left - pad, longest->top - pad, longest->right + pad, longest->bottom + pad};
  const int clockwise = tesseract_reading::readingConfidence(*api, grey, width, height, region,
                                                             tesseract_reading::RegionTurn::clockwise);
  const int counter = tesseract_reading::readingConfidence(*api, grey, width, height, region,
                                                           tesseract_reading::RegionTurn::counterClockwise);
  if (clockwise < 0 && counter < 0) return std::nullopt;
  return clockwise >= counter;
}

TesseractEngine::State::SampleReaders TesseractEngine::State::sampleReaders(const GreyImage& grey, int width,
                                                                         int height, int resolution) {
  auto readerFor = [this, &grey, width, height, resolution](const std::string& code) -> recognition::SampleReader {
    tesseract::TessBaseAPI* api = reader(code, ReaderKind::line);
    if (api == nullptr) return nullptr;
    const ScriptForms& codeForms = forms(code);
    // A reader that fails to load drops all the others, this one's `api`
    // with them: once `failed` is set, no line is read.
    return [this, &grey, width, height, resolution, api, &codeForms](const Box& b, int widest) {
      HanReading reading;
      if (failed) return reading;
      const std::optional<Box> region =
          recognition::clipToPage(recognition::sampleRegion(b, width, widest), width, height);
      if (region && tesseract_reading::recognizeRegion(*api, grey, width, height, *region, resolution))
        reading = tesseract_reading::hanReading(*api, codeForms, region->left, region->top);
      api->Clear();
      return reading;
    };
  };
  SampleReaders readers;
  readers.first = readerFor(plan.first);
  auto loaded = std::make_shared<recognition::SampleReader>();
  readers.second = [readerFor, loaded, code = plan.second](const Box& b, int widest) {
    if (!*loaded) *loaded = readerFor(code);
    return *loaded ? (*loaded)(b, widest) : HanReading{};
  };
  return readers;
}

Script TesseractEngine::State::decide(const recognition::SampleReading& sample, const GreyImage& grey, int width,
                                      int height) {
  std::vector<double> leans;
  if (!sample.votes.forms.empty() && !recognition::settled(sample.votes)) {
    if (!referenceGlyphs) referenceGlyphs = std::make_unique<ReferenceGlyphs>();
    leans = recognition::formLeans(
        grey.data, width, height, sample.votes.forms, plan.first == "chi_tra",
        [this](UChar32 c, bool traditional, int em) { return referenceGlyphs->draw(c, traditional, em); });
  }
  return recognition::decideScript(sample, leans);
}

Script TesseractEngine::State::chooseScript(const std::vector<Box>& layout, const GreyImage& grey, int width,
                                            int height, const SampleReaders& readers,
                                            recognition::SampleReading& sample) {
  // Horizontal text lines, in reading order.
  std::vector<Box> lines;
  std::copy_if(layout.begin(), layout.end(), std::back_inserter(lines), recognition::isSampleLine);
  if (lines.empty() || !readers.first) return Script::noHan;  // `failed` tells why a reader is missing
  sample = recognition::readSample(recognition::sampleOrder(lines), readers.first, readers.second);
  if (sample.linesWithHan == 0) return Script::noHan;
  return decide(sample, grey, width, height);
}

bool TesseractEngine::State::rereadLatinRuns(ReadLine& line, const std::string& languages, const GreyImage& grey,
                                             const InkBits* ink, int width, int height, int resolution) {
  const std::vector<recognition::LatinRun> runs = recognition::latinRuns(line.words, line.box.thickness());
  if (runs.empty()) return true;
  tesseract::TessBaseAPI* api = reader(languages, ReaderKind::line);
  if (api == nullptr) return false;
  bool changed = false;
  for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
    const std::optional<Box> region = recognition::runRegion(line, *run, width, height);
    if (!region) continue;
    recognition::ReadLine again;
    if (tesseract_reading::recognizeRegion(*api, grey, width, height, *region, resolution))
      again = recognition::joinParts(tesseract_reading::readLines(*api, ink, region->left, region->top), line.box, ink);
    api->Clear();
    if (recognition::replaceRun(line, *run, std::move(again), ink)) changed = true;
  }
  if (changed)
    line.confidence = static_cast<float>(recognition::meanConfidence(line.confidences, 0, line.confidences.size()));
  return true;
}

void TesseractEngine::State::readLocally(tesseract::TessBaseAPI& api, const GreyImage& page, int width, int height,
                                         int ppi, const std::string& latinLanguages, const std::vector<Box>& lines,
                                         std::vector<TextObservation>& observations) {
  if (std::min(width, height) < kLeastSauvolaSide) return;
  // The page read with Sauvola's threshold, and the boxes of its lines with text.
  std::vector<Box> withText;
  auto readAgain = [&] {
    api.Clear();
    api.SetVariable("thresholding_method", kSauvolaThresholding);
    api.SetImage(page.data, width, height, 1, width);
    if (ppi > 0) api.SetSourceResolution(ppi);
    std::vector<Box> boxes;
    std::vector<TextObservation> again;
    if (api.Recognize(nullptr) == 0) {
      const InkMap ink(api.GetThresholdedImage(), width, height);
      again = collect(api, width, height, page, ink, latinLanguages, &boxes);
    }
    // A Latin model that failed to load took the readers, `api` with them.
    if (failed) return again;
    api.SetVariable("thresholding_method", kGlobalThresholding);
    api.Clear();
    for (size_t i = 0; i < again.size(); ++i)
      if (again[i].candidate) withText.push_back(boxes[i]);
    return again;
  };
  // A reading that holds nothing left all of the page's ink unread, however
  // much there is: any reading with text reads more of it.
  if (lines.empty()) {
    std::vector<TextObservation> again = readAgain();
    if (!failed && !withText.empty()) observations = std::move(again);
    return;
  }
  // A window two typical lines across on each side holds ground around any glyph.
  std::vector<int> thicknesses = tesseract_reading::lineThicknesses(lines);
  const auto middle = thicknesses.begin() + static_cast<std::ptrdiff_t>(thicknesses.size() / 2);
  std::nth_element(thicknesses.begin(), middle, thicknesses.end());
  const InkMap local(tesseract_reading::localInkAtHalf(page, width, height, 2 * *middle), width / 2, height / 2);
  if (local.bits() == nullptr) return;
  auto halved = [](std::vector<Box> boxes) {
    for (Box& b : boxes) b = Box{b.left / 2, b.top / 2, (b.right + 1) / 2, (b.bottom + 1) / 2};
    return boxes;
  };
  const recognition::UnreadWidth first = recognition::unreadWidth(*local.bits(), halved(lines));
  if (!recognition::leavesALineUnread(first)) return;
  std::vector<TextObservation> again = readAgain();
  if (failed || withText.empty()) return;
  if (recognition::readsClearlyMore(recognition::unreadWidth(*local.bits(), halved(withText)), first))
    observations = std::move(again);
}

std::vector<TextObservation> TesseractEngine::State::collect(tesseract::TessBaseAPI& api, double width,
                                                            double height, const GreyImage& grey, const InkMap& ink,
                                                            const std::string& latinLanguages,
                                                            std::vector<Box>* boxes) {
  std::vector<TextObservation> observations;
  const int w = static_cast<int>(width), h = static_cast<int>(height);
  std::vector<ReadLine> lines = tesseract_reading::readLines(api, ink.bits());
  if (!latinLanguages.empty()) {
    const int resolution = api.GetSourceYResolution();
    for (ReadLine& line : lines)
      if (recognition::rereadsLine(line) &&
          !rereadLatinRuns(line, latinLanguages, grey, ink.bits(), w, h, resolution))
        return observations;  // the caller sees `failed`
  }

  observations.reserve(lines.size());
  for (const ReadLine& line : lines) {
    if (!line.placed) continue;
    TextObservation o;
    std::string text = recognition::joinLineWords(line.words, line.box.thickness());
    if (!text.empty())
      o.candidate = RecognizedCandidate{std::move(text), std::clamp(line.confidence / 100.0f, 0.0f, 1.0f)};
    const recognition::Corners corners = recognition::lineCorners(line.box, line.drop, width, height);
    o.topLeft = corners.topLeft;
    o.topRight = corners.topRight;
    o.bottomRight = corners.bottomRight;
    o.bottomLeft = corners.bottomLeft;
    observations.push_back(std::move(o));
    if (boxes != nullptr) boxes->push_back(line.box);
  }
  return observations;
}

std::string TesseractEngine::defaultTessdataDir() { return KVO_TESSDATA_DIR; }

TesseractEngine::TesseractEngine(std::string tessdataDir, Threading threading) {
  silenceLibrariesOnce();
  state_ = std::make_unique<State>();
  state_->tessdataDir = std::move(tessdataDir);
  state_->threading = threading;
}

TesseractEngine::~TesseractEngine() = default;

std::optional<std::vector<TextObservation>> TesseractEngine::recognize(const Bitmap& image,
                                                                       const RecognitionRequest& request) {
  if (!image.valid() || image.width() <= 0 || image.height() <= 0 || image.width() > kMaxSide ||
      image.height() > kMaxSide ||
      image.stride() < static_cast<size_t>(image.width()) * static_cast<size_t>(bytesPerPixel(image.format())))
    return std::nullopt;

  SingleThreadRegions singleThread(state_->threading == Threading::singleThread);
  State& state = *state_;
  if (!state.configure(request)) return std::nullopt;

  int width = static_cast<int>(image.width());
  int height = static_cast<int>(image.height());
  // Tesseract binarises and recognises a grey image; handing it one byte per
  // pixel keeps its internal copy a quarter of the size it makes of RGB.
  GreyImage grey;
  if (!recognition::toGrey(image, grey)) return std::nullopt;
  // Light text on a dark ground is read as dark text on a light one.
  const recognition::GroundSplit split = recognition::splitGround(grey.data, width, height);
  if (split.darkGround) recognition::invertGrey(grey.data, static_cast<size_t>(width) * static_cast<size_t>(height));
  const int ppi = recognition::roundedResolution(image.pixelsPerInch());
  std::optional<std::vector<TextObservation>> result = state.read(grey, width, height, ppi, split.level);
  // A sheet photographed on a darker surface can read as nothing at all: the
  // page's grey levels separate best between the surface and the sheet, and
  // grey print falls on the sheet's side. Such a page is read once more with
  // the surface made sheet (recognition/PagePreparation: clearSurround).
  // Only a page that read as nothing is: one that read as something keeps it.
  const auto holdsText = [](const std::vector<TextObservation>& observations) {
    return std::any_of(observations.begin(), observations.end(),
                       [](const TextObservation& o) { return o.candidate.has_value(); });
  };
  // The surface is looked for on the page as given: one that covers most of
  // the photograph makes the page look like light text on a dark ground.
  GreyImage sheet;
  if (result && !state.failed && !holdsText(*result)) {
    const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
    if (split.darkGround) recognition::invertGrey(grey.data, pixels);
    if (!recognition::clearSurround(grey, width, height, split.givenLevel, sheet)) return result;
    const recognition::GroundSplit sheetSplit = recognition::splitGround(sheet.data, width, height);
    if (sheetSplit.darkGround) recognition::invertGrey(sheet.data, pixels);
    std::optional<std::vector<TextObservation>> again = state.read(sheet, width, height, ppi, sheetSplit.level);
    if (state.failed) return std::nullopt;
    if (again && holdsText(*again)) result = std::move(again);
  }
  return result;
}

std::optional<std::vector<TextObservation>> TesseractEngine::State::read(const GreyImage& grey, int width,
                                                                         int height, int ppi, int level) {
  // The page as read: `grey`, or a copy of it turned straight and/or
  // enlarged for small text.
  const GreyImage* page = &grey;
  GreyImage turned, upright, enlarged;
  // The turns made, in order; observations are mapped back through them in reverse.
  std::vector<recognition::PageTurn> turns;
  if (const auto turn = tesseract_reading::straighten(grey, width, height, level, turned)) {
    turns.push_back(*turn);
    page = &turned;
    width = turn->turnedWidth;
    height = turn->turnedHeight;
  }
  // Tesseract copies the pixels into its own image.
  auto load = [&](tesseract::TessBaseAPI& api, const GreyImage& image) {
    api.Clear();
    api.SetImage(image.data, width, height, 1, width);
    if (ppi > 0) api.SetSourceResolution(ppi);
  };
  // The resolution Tesseract read the page at: the image's, or its own
  // estimate from the text's size when the image has none.
  int resolution = 0;
  auto findLayout = [&](tesseract::TessBaseAPI& api) {
    load(api, *page);
    Layout found = tesseract_reading::analyseLayout(api);
    resolution = api.GetSourceYResolution();
    return found;
  };

  // The models that read the page: recognition/ReadingPlan. The reader that
  // finds the layout also reads lines for the quarter-turn check and the
  // script's sample, so the page is loaded again before it is read.
  tesseract::TessBaseAPI* api = nullptr;
  std::string latinLanguages;
  std::optional<std::vector<TextObservation>> result;
  // The lines of `result` that hold text, as read on `page`.
  std::vector<Box> readBoxes;
  try {
    api = reader(plan.layout, ReaderKind::page);
    if (api == nullptr) return std::nullopt;
    Layout layout = findLayout(*api);
    // A page turned a quarter is read turned upright: Tesseract finds its
    // lines running down the page and, taking them for vertical writing,
    // has no way to tell which way the glyphs stand. The longest of them is
    // read turned each way, and the more confident reading says which.
    std::optional<bool> clockwise;
    if (layout.mostlyDown())
      clockwise = uprightTurn(layout.lines, *page, width, height);
    if (failed) {
      api = nullptr;  // released with the others
      return std::nullopt;
    }
    if (clockwise && recognition::turnGreyQuarter(*page, width, height, *clockwise, upright)) {
      turns.push_back(recognition::PageTurn{(*clockwise ? 1 : -1) * M_PI / 2, width, height, height, width});
      page = &upright;
      std::swap(width, height);
      api = reader(plan.layout, ReaderKind::page);
      if (api == nullptr) return std::nullopt;
      layout = findLayout(*api);
    }
    // Small text is read from a page enlarged so that its lines reach a
    // readable height; the observations are normalised to the page read, so
    // they stand for the same places on the page given.
    const int factor =
        recognition::enlargement(tesseract_reading::lineThicknesses(layout.lines), width, height, kMaxSide);
    if (factor > 1 && recognition::enlargeGrey(*page, width, height, factor, enlarged)) {
      page = &enlarged;
      width *= factor;
      height *= factor;
      ppi *= factor;
      api = reader(plan.layout, ReaderKind::page);
      if (api == nullptr) return std::nullopt;
      layout = findLayout(*api);
    }
    Script script = Script::noHan;
    SampleReaders samplers;
    recognition::SampleReading sample;
    if (plan.choosesScript()) {
      samplers = sampleReaders(*page, width, height, resolution);
      script = chooseScript(layout.lines, *page, width, height, samplers, sample);
      if (failed) {
        api = nullptr;
        return std::nullopt;
      }
      if (script != Script::noHan) latinLanguages = plan.latin;
    }
    // Reads the page with the models for `script` into `result`; `found`
    // gets the boxes of the lines the layout analysis dropped and the second
    // reading found (recognition/UnreadInk). False when a reader fails to load.
    auto readPage = [&](std::vector<Box>& found) {
      result.reset();
      found.clear();
      readBoxes.clear();
      api = reader(plan.pageModels(script), ReaderKind::page);
      if (api == nullptr) return false;
      load(*api, *page);
      if (api->Recognize(nullptr) != 0) return true;
      const InkMap ink(api->GetThresholdedImage(), width, height);
      std::vector<Box> read;
      result = collect(*api, width, height, *page, ink, latinLanguages, &read);
      // Lines the layout analysis dropped are looked for on the rest of the
      // page, the lines read blanked out, as sparse text; what is found there
      // is kept where it holds glyph-sized ink no line read covers. A line
      // the reading found no text on (a frame, a picture) covers nothing.
      std::vector<Box> withText;
      for (size_t i = 0; i < read.size(); ++i)
        if ((*result)[i].candidate) withText.push_back(read[i]);
      const std::vector<Box> unread = failed || ink.bits() == nullptr
                                          ? std::vector<Box>{}
                                          : recognition::unreadGlyphs(*ink.bits(), withText);
      readBoxes = withText;
      GreyImage rest;
      if (unread.empty() || !recognition::blankLines(*page, width, height, withText, rest)) return true;
      api = reader(plan.pageModels(script), ReaderKind::sparse);  // the same reader
      if (api == nullptr) return false;
      load(*api, rest);
      if (api->Recognize(nullptr) != 0) return true;
      const InkMap restInk(api->GetThresholdedImage(), width, height);
      std::vector<Box> more;
      std::vector<TextObservation> again = collect(*api, width, height, *page, restInk, latinLanguages, &more);
      for (size_t i = 0; i < again.size(); ++i)
        if (recognition::holdsUnreadGlyph(more[i], unread)) {
          if (again[i].candidate) readBoxes.push_back(more[i]);
          result->push_back(std::move(again[i]));
          found.push_back(more[i]);
        }
      return true;
    };
    std::vector<Box> dropped;
    if (!readPage(dropped)) return std::nullopt;
    // The sample saw only the lines the first layout analysis found. When
    // its votes were not settled and the page read found more, those are
    // sampled too, and a page the votes then give to the other model is
    // read again with it.
    if (script != Script::noHan && !dropped.empty() && !failed && !recognition::settled(sample.votes)) {
      recognition::extendSample(sample, dropped, samplers.first, samplers.second);
      const Script again = failed ? script : decide(sample, *page, width, height);
      if (again != script) {
        script = again;
        if (!readPage(dropped)) return std::nullopt;
      }
    }
    if (result && !failed) {
      api = reader(plan.pageModels(script), ReaderKind::page);
      if (api == nullptr) return std::nullopt;
      readLocally(*api, *page, width, height, ppi, latinLanguages, readBoxes, *result);
    }
    // A page read upside down is read again turned half (recognition/HalfTurn).
    if (result && !failed && !turningHalf && recognition::doubtfulReading(*result)) {
      api = reader(plan.withoutHan, ReaderKind::line);
      if (api == nullptr) return std::nullopt;
      const bool upsideDown = recognition::readsUpsideDown(
          recognition::boxesWithText(*result, width, height), [&](const Box& line, bool turned) {
            if (failed) return -1;
            return tesseract_reading::readingConfidence(
                *api, *page, width, height, recognition::sampleRegion(line, width, recognition::kWholeLine),
                turned ? tesseract_reading::RegionTurn::half : tesseract_reading::RegionTurn::none);
          });
      GreyImage half;
      if (upsideDown && !failed && recognition::turnGreyHalf(*page, width, height, half)) {
        // The readers may be dropped on the way (a model failing to load).
        api = nullptr;
        turningHalf = true;
        std::optional<std::vector<TextObservation>> again = read(half, width, height, ppi, level);
        turningHalf = false;
        if (failed) return std::nullopt;
        if (again) {
          const recognition::PageTurn back{M_PI, width, height, width, height};
          for (TextObservation& o : *again) back.mapBack(o);
          result = std::move(again);
        }
      }
    }
    if (failed) {
      // A model for the lines failed to load: the readers are gone.
      api = nullptr;
      result.reset();
    }
  } catch (const std::bad_alloc&) {
    result.reset();
  }
  if (api != nullptr) api->Clear();
  if (result)
    for (auto turn = turns.rbegin(); turn != turns.rend(); ++turn)
      for (TextObservation& o : *result) turn->mapBack(o);
  return result;
}

}  // namespace kvo
