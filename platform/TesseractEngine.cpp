#include "platform/TesseractEngine.h"

#include <leptonica/allheaders.h>
#include <omp.h>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>
#include <unicode/uchar.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <utility>

namespace kvo {

namespace {

// Largest side Tesseract's layout analysis accepts.
constexpr int64_t kMaxSide = std::numeric_limits<int16_t>::max();

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

// ---------------------------------------------------------------------------
// Pixels. Tesseract binarises and recognises a grey image; handing it one
// byte per pixel (luminance with Leptonica's own weights, the ones Tesseract
// would use to convert colour) costs one pass here and keeps its internal
// copy a quarter of the size of the 32-bit copy it makes of RGB input.
// Transparent pixels are composited over white.

struct GreyImage {
  uint8_t* data = nullptr;
  ~GreyImage() { std::free(data); }
};

inline uint32_t luminance(uint32_t r, uint32_t g, uint32_t b) {
  // 0.3 R + 0.5 G + 0.2 B in 8.8 fixed point; white stays 255.
  return (77 * r + 128 * g + 51 * b + 128) >> 8;
}

bool toGrey(const Bitmap& image, GreyImage& grey) {
  const auto width = static_cast<size_t>(image.width());
  const auto height = static_cast<size_t>(image.height());
  grey.data = static_cast<uint8_t*>(std::malloc(width * height));
  if (grey.data == nullptr) return false;
  const bool alpha = image.format() == PixelFormat::rgba8;
  const size_t step = alpha ? 4 : 3;
  for (size_t y = 0; y < height; ++y) {
    const uint8_t* src = image.row(static_cast<int64_t>(y));
    uint8_t* dst = grey.data + y * width;
    for (size_t x = 0; x < width; ++x, src += step) {
      uint32_t v = luminance(src[0], src[1], src[2]);
      if (alpha) {
        const uint32_t a = src[3];
        v = (v * a + 255 * (255 - a) + 127) / 255;
      }
      dst[x] = static_cast<uint8_t>(v);
    }
  }
  return true;
}

// ---------------------------------------------------------------------------
// Coordinates: Tesseract's pixel boxes (top-left origin) to normalised
// bottom-left-origin points.
NormalizedPoint normalised(int px, int py, double width, double height) {
  return {px / width, 1.0 - py / height};
}

}  // namespace

// ---------------------------------------------------------------------------

namespace tesseract_text {

namespace {

UChar32 firstCodePoint(const std::string& s) {
  int32_t i = 0;
  UChar32 c = 0;
  U8_NEXT(s.data(), i, static_cast<int32_t>(s.size()), c);
  return c;
}

UChar32 lastCodePoint(const std::string& s) {
  int32_t i = static_cast<int32_t>(s.size());
  UChar32 c = 0;
  U8_PREV(s.data(), 0, i, c);
  return c;
}

// Characters written without spaces between them in CJK text.
bool isCjk(UChar32 c) {
  if (c < 0x2E80) return false;  // nothing below the CJK radicals is CJK or wide
  UErrorCode status = U_ZERO_ERROR;
  switch (uscript_getScript(c, &status)) {
    case USCRIPT_HAN:
    case USCRIPT_HIRAGANA:
    case USCRIPT_KATAKANA:
    case USCRIPT_HANGUL:
    case USCRIPT_BOPOMOFO:
      return true;
    default:
      break;
  }
  if (u_hasBinaryProperty(c, UCHAR_IDEOGRAPHIC)) return true;
  const auto width = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
  return width == U_EA_WIDE || width == U_EA_FULLWIDTH;
}

// Punctuation that is fullwidth in CJK text although Unicode gives it an
// ambiguous width (“ ” ‘ ’ … — ·): CJK when it stands next to CJK.
bool isAmbiguousPunctuation(UChar32 c) {
  return u_ispunct(c) && u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH) == U_EA_AMBIGUOUS;
}

bool isPunctuation(UChar32 c) { return u_ispunct(c) != 0; }

}  // namespace

std::string joinLineWords(const std::vector<Word>& words, int lineThickness) {
  std::string text;
  const Word* previous = nullptr;
  for (const Word& word : words) {
    if (word.text.empty()) continue;
    if (previous != nullptr) {
      const UChar32 before = lastCodePoint(previous->text);
      const UChar32 after = firstCodePoint(word.text);
      const bool cjkBefore = isCjk(before), cjkAfter = isCjk(after);
      const bool cjkBoundary = (cjkBefore && cjkAfter) || (cjkBefore && isAmbiguousPunctuation(after)) ||
                               (cjkAfter && isAmbiguousPunctuation(before));
      bool space = true;
      if (cjkBoundary) {
        // Horizontal lines advance to the right, vertical ones downwards;
        // the other difference is negative (the boxes overlap along it).
        const int gap = std::max(word.left - previous->right, word.top - previous->bottom);
        const double allowed =
            (isPunctuation(before) || isPunctuation(after) ? 1.0 : 0.5) * std::max(lineThickness, 1);
        space = gap > allowed;
      }
      if (space) text += ' ';
    }
    text += word.text;
    previous = &word;
  }
  return text;
}

std::string tesseractLanguages(const std::vector<std::string>& tags) {
  auto lower = [](std::string s) {
    for (char& ch : s)
      if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
    return s;
  };
  auto startsWith = [](const std::string& s, const std::string& prefix) {
    return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0 &&
           (s.size() == prefix.size() || s[prefix.size()] == '-');
  };
  std::vector<std::string> codes;
  for (const auto& raw : tags) {
    const std::string tag = lower(raw);
    const char* code = nullptr;
    if (startsWith(tag, "zh-hans"))
      code = "chi_sim";
    else if (startsWith(tag, "zh-hant"))
      code = "chi_tra";
    else if (startsWith(tag, "en"))
      code = "eng";
    if (code != nullptr && std::find(codes.begin(), codes.end(), code) == codes.end()) codes.emplace_back(code);
  }
  if (codes.empty()) codes = {"chi_sim", "chi_tra", "eng"};
  std::string joined;
  for (const auto& code : codes) {
    if (!joined.empty()) joined += '+';
    joined += code;
  }
  return joined;
}

}  // namespace tesseract_text

// ---------------------------------------------------------------------------

struct TesseractEngine::State {
  std::string tessdataDir;
  Threading threading;
  tesseract::TessBaseAPI api;
  bool initialised = false;
  bool failed = false;
  std::string languages;  // what the models were loaded for
  bool correction = false;

  bool ensureInitialised(const RecognitionRequest& request);
  std::vector<TextObservation> collect(double width, double height);
};

bool TesseractEngine::State::ensureInitialised(const RecognitionRequest& request) {
  if (failed) return false;
  const std::string wanted = tesseract_text::tesseractLanguages(request.languages);
  if (initialised && wanted == languages && request.usesLanguageCorrection == correction) return true;
  if (initialised) api.End();
  initialised = false;

  // Dictionaries are init-only parameters. The LSTM recogniser loads its
  // own word lists only when it decodes with the ratings matrix
  // (lstm_use_matrix), so that is switched off with the legacy ones.
  const char* dictionaries = request.usesLanguageCorrection ? "1" : "0";
  const std::vector<std::string> names = {"load_system_dawg", "load_freq_dawg",   "load_unambig_dawg",
                                          "load_punc_dawg",   "load_number_dawg", "load_bigram_dawg",
                                          "lstm_use_matrix"};
  const std::vector<std::string> values(names.size(), dictionaries);
  const bool ok = api.Init(tessdataDir.c_str(), wanted.c_str(), tesseract::OEM_LSTM_ONLY, nullptr, 0, &names,
                           &values, false) == 0;
  if (ok) {
    // Tesseract carries on when some of the languages fail to load; the
    // engine does not.
    std::vector<std::string> loaded;
    api.GetLoadedLanguagesAsVector(&loaded);
    size_t start = 0;
    bool all = true;
    while (start <= wanted.size()) {
      const size_t end = std::min(wanted.find('+', start), wanted.size());
      const std::string code = wanted.substr(start, end - start);
      all = all && std::find(loaded.begin(), loaded.end(), code) != loaded.end();
      start = end + 1;
    }
    if (all) {
      api.SetPageSegMode(tesseract::PSM_AUTO);
      initialised = true;
      languages = wanted;
      correction = request.usesLanguageCorrection;
      return true;
    }
  }
  api.End();
  failed = true;
  return false;
}

std::vector<TextObservation> TesseractEngine::State::collect(double width, double height) {
  std::vector<TextObservation> observations;
  std::unique_ptr<tesseract::ResultIterator> it(api.GetIterator());
  if (!it || it->Empty(tesseract::RIL_TEXTLINE)) return observations;

  struct Line {
    int left, top, right, bottom;
    float confidence;
    std::vector<tesseract_text::Word> words;
  };
  std::vector<Line> lines;
  do {
    if (lines.empty() || it->IsAtBeginningOf(tesseract::RIL_TEXTLINE)) {
      Line line{};
      if (!it->BoundingBox(tesseract::RIL_TEXTLINE, &line.left, &line.top, &line.right, &line.bottom)) continue;
      line.confidence = it->Confidence(tesseract::RIL_TEXTLINE);
      lines.push_back(std::move(line));
    }
    tesseract_text::Word word;
    if (!it->BoundingBox(tesseract::RIL_WORD, &word.left, &word.top, &word.right, &word.bottom)) continue;
    std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_WORD));
    if (text == nullptr) continue;
    // A word never contains white space; strip any that slips in.
    for (const char* p = text.get(); *p != '\0'; ++p)
      if (*p != ' ' && *p != '\n' && *p != '\t' && *p != '\r') word.text += *p;
    lines.back().words.push_back(std::move(word));
  } while (it->Next(tesseract::RIL_WORD));

  observations.reserve(lines.size());
  for (const Line& line : lines) {
    TextObservation o;
    const int thickness = std::min(line.right - line.left, line.bottom - line.top);
    std::string text = tesseract_text::joinLineWords(line.words, thickness);
    if (!text.empty()) o.candidate = RecognizedCandidate{std::move(text), line.confidence / 100.0f};
    o.topLeft = normalised(line.left, line.top, width, height);
    o.topRight = normalised(line.right, line.top, width, height);
    o.bottomRight = normalised(line.right, line.bottom, width, height);
    o.bottomLeft = normalised(line.left, line.bottom, width, height);
    observations.push_back(std::move(o));
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
  if (!state_->ensureInitialised(request)) return std::nullopt;

  const int width = static_cast<int>(image.width());
  const int height = static_cast<int>(image.height());
  {
    GreyImage grey;
    if (!toGrey(image, grey)) return std::nullopt;
    // Tesseract copies the pixels into its own image.
    state_->api.SetImage(grey.data, width, height, 1, width);
  }
  if (image.pixelsPerInch() > 0) {
    const double ppi = std::min(image.pixelsPerInch(), static_cast<double>(std::numeric_limits<int>::max()));
    state_->api.SetSourceResolution(static_cast<int>(std::lround(ppi)));
  }

  std::optional<std::vector<TextObservation>> result;
  try {
    if (state_->api.Recognize(nullptr) == 0) result = state_->collect(width, height);
  } catch (const std::bad_alloc&) {
    result.reset();
  }
  state_->api.Clear();
  return result;
}

}  // namespace kvo
