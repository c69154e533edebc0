#include "platform/TesseractEngine.h"

#include <leptonica/allheaders.h>
#include <omp.h>
#include <sys/stat.h>
#include <tesseract/baseapi.h>
#include <tesseract/resultiterator.h>
#include <unicode/translit.h>
#include <unicode/uchar.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
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
NormalizedPoint normalised(double px, double py, double width, double height) {
  return {px / width, 1.0 - py / height};
}

// ---------------------------------------------------------------------------
// Lines and words.

struct Box {
  int left = 0, top = 0, right = 0, bottom = 0;
  int width() const { return right - left; }
  int height() const { return bottom - top; }
};

// The binarised page Tesseract recognised (1 = ink), used to measure the
// blank between two words: the boxes the LSTM recogniser reports for single
// characters are estimates that can be off by half a character, far too
// rough to tell characters set solid from a real gap.
class InkMap {
 public:
  // Takes over `binary`; uses it only when it has the page's size.
  InkMap(Pix* binary, int width, int height) : pix_(binary) {
    usable_ = pix_ != nullptr && pixGetDepth(pix_) == 1 && static_cast<int>(pixGetWidth(pix_)) == width &&
              static_cast<int>(pixGetHeight(pix_)) == height;
  }
  ~InkMap() { pixDestroy(&pix_); }
  InkMap(const InkMap&) = delete;
  InkMap& operator=(const InkMap&) = delete;

  // The longest run of ink-free columns (rows for a vertical line) within
  // the line between the middles of the two word boxes; the distance
  // between the boxes when the page image is not available.
  int gap(const Box& line, const Box& a, const Box& b) const {
    const bool vertical = line.height() > line.width();
    const int boxGap = vertical ? b.top - a.bottom : b.left - a.right;
    if (!usable_) return boxGap;
    const int w = static_cast<int>(pixGetWidth(pix_)), h = static_cast<int>(pixGetHeight(pix_));
    const int from = vertical ? (a.top + a.bottom) / 2 : (a.left + a.right) / 2;
    const int to = vertical ? (b.top + b.bottom) / 2 : (b.left + b.right) / 2;
    const int across0 = std::max(vertical ? line.left : line.top, 0);
    const int across1 = std::min(vertical ? line.right : line.bottom, vertical ? w : h);
    const int along0 = std::max(from, 0), along1 = std::min(to, vertical ? h : w);
    if (along0 >= along1 || across0 >= across1) return std::max(boxGap, 0);
    const l_uint32* data = pixGetData(pix_);
    const int wpl = static_cast<int>(pixGetWpl(pix_));
    int longest = 0, run = 0;
    for (int along = along0; along < along1; ++along) {
      bool ink = false;
      for (int across = across0; across < across1 && !ink; ++across) {
        const int x = vertical ? across : along, y = vertical ? along : across;
        ink = GET_DATA_BIT(data + static_cast<size_t>(y) * wpl, x) != 0;
      }
      run = ink ? 0 : run + 1;
      longest = std::max(longest, run);
    }
    return longest;
  }

 private:
  Pix* pix_;
  bool usable_ = false;
};

// The drop of the line's baseline across its box (see Line::drop below),
// when it is large enough to matter and small enough to trust: horizontal
// lines only, at least 2 pixels, and leaving at least a fifth of the box's
// height for the text itself.
double baselineDrop(const tesseract::ResultIterator& it, const Box& box) {
  int x1 = 0, y1 = 0, x2 = 0, y2 = 0;
  if (!it.Baseline(tesseract::RIL_TEXTLINE, &x1, &y1, &x2, &y2) || x2 == x1) return 0;
  if (box.width() <= box.height()) return 0;
  const double drop = static_cast<double>(y2 - y1) / (x2 - x1) * box.width();
  return std::abs(drop) >= 2 && std::abs(drop) <= 0.8 * box.height() ? drop : 0;
}

// Recognises the part of the page inside `region`, clipped to the page, on
// its own with `api`. Returns false when none of it is on the page or
// recognition fails; the caller reads the result and then clears `api`.
bool recognizeRegion(tesseract::TessBaseAPI& api, const GreyImage& grey, int width, int height, Box region,
                     int resolution) {
  region.left = std::max(region.left, 0);
  region.top = std::max(region.top, 0);
  region.right = std::min(region.right, width);
  region.bottom = std::min(region.bottom, height);
  if (region.width() <= 0 || region.height() <= 0) return false;
  api.SetImage(grey.data + static_cast<size_t>(region.top) * width + region.left, region.width(), region.height(),
               1, width);
  if (resolution > 0) api.SetSourceResolution(resolution);
  return api.Recognize(nullptr) == 0;
}

bool isHan(UChar32 c) {
  UErrorCode status = U_ZERO_ERROR;
  return c >= 0x2E80 && uscript_getScript(c, &status) == USCRIPT_HAN;
}

// Tesseract's form of a list of models: "chi_sim+eng".
std::string joinCodes(const std::vector<std::string>& codes) {
  std::string joined;
  for (const auto& code : codes) {
    if (!joined.empty()) joined += '+';
    joined += code;
  }
  return joined;
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

bool isPunctuation(UChar32 c) { return u_ispunct(c) != 0; }

bool allPunctuation(const std::string& s) {
  int32_t i = 0;
  const auto length = static_cast<int32_t>(s.size());
  while (i < length) {
    UChar32 c = 0;
    U8_NEXT(s.data(), i, length, c);
    if (c < 0 || !isPunctuation(c)) return false;
  }
  return true;
}

// How the character at one edge of a word behaves at a word boundary.
enum class Edge { latin, cjk, neutral };

Edge edgeOf(const std::string& word, UChar32 c) {
  if (isCjk(c)) return Edge::cjk;
  // Punctuation Tesseract reports as a word of its own (often an ASCII
  // comma or colon read from a fullwidth one), or punctuation whose width
  // follows the script around it, belongs to its neighbour's script.
  if (isPunctuation(c) &&
      (allPunctuation(word) || u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH) == U_EA_AMBIGUOUS))
    return Edge::neutral;
  return Edge::latin;
}

// Blank around a fullwidth , : ; ? ! and outside a fullwidth parenthesis,
// in line thicknesses, as measured between the middles of two word boxes.
// On 200-dpi pages (Noto CJK, 11-12 pt, lines about 30 pixels thick), a
// fullwidth comma has 0.4-0.5 before it or 0.45-0.7 after it; an ASCII one
// at most 0.18 before and 0.32 after. Outside a fullwidth parenthesis:
// 0.45-0.9 (0.35-0.45 between a ) and fullwidth punctuation); outside an
// ASCII one 0-0.25, 0.4 when a space follows or precedes it.
constexpr double kWideMarkGap = 0.25;
constexpr double kWideMarkGapAfter = 0.42;
constexpr double kWideParenthesisGap = 0.45;

// Han, or fullwidth CJK punctuation (which only stands in CJK text).
bool isChinese(UChar32 c) { return isHan(c) || (c >= 0x3000 && isCjk(c) && isPunctuation(c)); }

std::string utf8(UChar32 c) {
  char buffer[U8_MAX_LENGTH];
  int32_t n = 0;
  U8_APPEND_UNSAFE(buffer, n, c);
  return std::string(buffer, static_cast<size_t>(n));
}

// Fullwidth forms Tesseract reads as ASCII ones, put back where the page
// shows them (see joinLineWords). Marks the words that got one.
void widenPunctuation(std::vector<Word>& words, int lineThickness, std::vector<bool>& widened) {
  const double thickness = std::max(lineThickness, 1);
  const size_t n = words.size();
  widened.assign(n, false);
  auto lastOf = [&](size_t i) { return i < n && !words[i].text.empty() ? lastCodePoint(words[i].text) : 0; };
  auto firstOf = [&](size_t i) { return i < n && !words[i].text.empty() ? firstCodePoint(words[i].text) : 0; };
  auto gapAfter = [&](size_t i) { return i + 1 < n ? words[i + 1].gapBefore : 0; };

  // Parentheses: a fullwidth ( sits at the right of its cell and ) at the
  // left, so the blank outside the pair is wide. A pair is widened when
  // Han is next to it on either side and one of those blanks is wide; a )
  // whose ( is on an earlier line, when Han is before it.
  struct Open {
    size_t word;
    size_t bytes;  // of the ( (or 〈) that starts the word
    bool chinese;  // Chinese before or after it
    bool wide;     // the blank before it is
  };
  // Tesseract reads a fullwidth ( as 〈 now and then: one the line does not
  // close with 〉 counts as a (.
  static const std::string kAngle = utf8(0x3008);
  bool angleIsOpen = true;
  for (const Word& word : words) angleIsOpen = angleIsOpen && word.text.find(utf8(0x3009)) == std::string::npos;
  std::vector<Open> open;
  for (size_t i = 0; i < n; ++i) {
    std::string& text = words[i].text;
    if (text.empty()) continue;
    const size_t opener = text.front() == '(' ? 1 : angleIsOpen && text.rfind(kAngle, 0) == 0 ? kAngle.size() : 0;
    if (opener > 0) {
      const UChar32 inside = text.size() > opener ? firstCodePoint(text.substr(opener)) : firstOf(i + 1);
      open.push_back({i, opener, (i > 0 && isChinese(lastOf(i - 1))) || isHan(inside),
                      i > 0 && words[i].gapBefore >= kWideParenthesisGap * thickness});
    }
    // A ) ends the word, or is followed by ASCII punctuation only.
    size_t close = text.find_last_of(')');
    if (close == std::string::npos) continue;
    bool tail = true;
    for (size_t k = close + 1; k < text.size(); ++k) tail = tail && std::ispunct(static_cast<unsigned char>(text[k]));
    if (!tail) continue;
    const UChar32 before = close > 0 ? lastCodePoint(text.substr(0, close)) : lastOf(i - 1);
    const UChar32 after = close + 1 < text.size() ? static_cast<UChar32>(text[close + 1]) : firstOf(i + 1);
    // Before fullwidth punctuation, which sits at the left of its own cell
    // and never has a space before it, a narrower blank does.
    const UChar32 next = firstOf(i + 1);
    const double wideGap = next >= 0x3000 && isCjk(next) && isPunctuation(next) ? kWideMarkGap : kWideParenthesisGap;
    const bool wideAfter = close + 1 == text.size() && i + 1 < n && gapAfter(i) >= wideGap * thickness;
    const bool chineseAround = isHan(before) || isHan(after);
    bool widen = false;
    if (!open.empty()) {
      const Open o = open.back();
      open.pop_back();
      widen = (o.chinese || chineseAround) && (o.wide || wideAfter);
      if (widen) {
        words[o.word].text.replace(0, o.bytes, utf8(0xFF08));
        widened[o.word] = true;
        if (o.word == i) close = close + utf8(0xFF08).size() - o.bytes;
      }
    } else {
      widen = isHan(before) && wideAfter;
    }
    if (widen) {
      text.replace(close, 1, utf8(0xFF09));
      widened[i] = true;
    }
  }
  // A ( left open on the line.
  for (const Open& o : open)
    if (o.chinese && o.wide) {
      words[o.word].text.replace(0, o.bytes, utf8(0xFF08));
      widened[o.word] = true;
    }
  // , : ; ? ! standing alone after Chinese, with the blank a fullwidth
  // mark's cell leaves before or after its ink (which of the two Tesseract's
  // word box takes in varies).
  for (size_t i = 1; i < n; ++i) {
    static const std::map<std::string, UChar32> kWide = {
        {",", 0xFF0C}, {":", 0xFF1A}, {";", 0xFF1B}, {"?", 0xFF1F}, {"!", 0xFF01}};
    const auto wide = kWide.find(words[i].text);
    if (wide == kWide.end() || !isChinese(lastOf(i - 1))) continue;
    if (words[i].gapBefore >= kWideMarkGap * thickness || gapAfter(i) >= kWideMarkGapAfter * thickness) {
      words[i].text = utf8(wide->second);
      widened[i] = true;
    }
  }
}

}  // namespace

std::string joinLineWords(const std::vector<Word>& lineWords, int lineThickness) {
  std::vector<Word> words = lineWords;
  std::vector<bool> widened;
  widenPunctuation(words, lineThickness, widened);
  std::string text;
  const Word* previous = nullptr;
  bool previousWidened = false;
  for (size_t i = 0; i < words.size(); ++i) {
    const Word& word = words[i];
    if (word.text.empty()) continue;
    if (previous != nullptr) {
      const UChar32 before = lastCodePoint(previous->text);
      const UChar32 after = firstCodePoint(word.text);
      const Edge left = edgeOf(previous->text, before), right = edgeOf(word.text, after);
      const bool cjkBoundary = (left == Edge::cjk && right != Edge::latin) ||
                               (right == Edge::cjk && left != Edge::latin);
      bool space = true;
      if (previousWidened || widened[i]) {
        // A fullwidth mark carries its own blank.
        space = false;
      } else if (cjkBoundary) {
        const double allowed =
            (isPunctuation(before) || isPunctuation(after) ? 1.0 : 0.5) * std::max(lineThickness, 1);
        space = word.gapBefore > allowed;
      }
      if (space) text += ' ';
    }
    text += word.text;
    previous = &word;
    previousWidened = widened[i];
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
  return joinCodes(codes);
}

}  // namespace tesseract_text

// ---------------------------------------------------------------------------

namespace {

// ---------------------------------------------------------------------------
// Script of a Chinese page. Tesseract reading with chi_sim and chi_tra
// together takes many characters of one script for their counterparts in
// the other, and is slower than either alone. So when both are requested,
// the page is read with one of them: a few of its text lines, found by the
// layout analysis, are read with each Chinese model alone, and the model
// that is more confident about the Han characters it writes in its own
// script's forms wins. The first one requested wins when the evidence is
// weak; a page without Han in the sample is read with the first and the
// other requested models, reusing that layout.

// Lines sampled at most, and enough Han characters to decide on.
constexpr int kSampleLines = 8;
constexpr int kEnoughSampleLines = 3;
constexpr int kEnoughHan = 60;
// Lines without Han read in a row before a page is taken to have none.
constexpr int kHanFreeLinesToGiveUp = 3;
// Until one turns up, only the start of a line is read first, this many
// times its height wide (a dozen Chinese characters, two dozen Latin
// letters): a page without Han then costs a fraction of full line reads.
constexpr int kProbeWidthInHeights = 12;
// The other model wins when its doubt about the Han characters it writes in
// its own script's forms (100 - mean confidence, confidences 0..100) is at
// most 1/kDoubtRatio of the first's and lower by kDoubtMargin. Measured on
// the 22 Chinese pages of the benchmark (200 dpi): 1.1-1.6 for the right
// model, 1.8-14 for the wrong one; the wrong one's doubt was at least 1.5
// times the right one's on all but one page (1.49), where the first model,
// the default, was the right one.
constexpr double kDoubtRatio = 1.5;
constexpr double kDoubtMargin = 0.3;
// Characters in a script's own forms both readings need for the doubt to be
// measured on them alone.
constexpr int kEnoughOwnForms = 8;

// On a Chinese page read with a Chinese model alone, a run of words with
// Latin letters is read again with the other requested models, and that
// reading replaces the Chinese model's when its mean confidence (0..100)
// is higher by more than this. The Chinese models read most Latin text in
// Chinese documents well; on 200-dpi pages, lower margins swapped in worse
// English readings about as often as better ones.
constexpr double kLatinRereadMargin = 20;

// Confidences (0..100) of the Han characters a probe read: all of them,
// and those the model wrote in a form of its own script only (a Simplified
// form the Traditional script writes differently, or the other way round).
// Both models read most glyphs with near certainty, shared characters and
// the other script's alike, each mapping the glyph onto its own script; the
// characters whose form differs are where the wrong model is less sure.
struct Confidences {
  int count = 0;
  double sum = 0;
  double doubt() const { return count > 0 ? 100 - sum / count : 100; }
  void add(double confidence) {
    ++count;
    sum += confidence;
  }
  void add(const Confidences& o) {
    count += o.count;
    sum += o.sum;
  }
};

struct HanReading {
  Confidences han, ownForms;
  void add(const HanReading& o) {
    han.add(o.han);
    ownForms.add(o.ownForms);
  }
};

// Tells the forms of one Chinese script from those the other writes
// differently, with ICU's Simplified/Traditional transliteration data.
class ScriptForms {
 public:
  // `toOther` is "Hans-Hant" for Simplified, "Hant-Hans" for Traditional.
  explicit ScriptForms(const char* toOther) {
    UErrorCode status = U_ZERO_ERROR;
    transliterator_.reset(icu::Transliterator::createInstance(toOther, UTRANS_FORWARD, status));
    if (U_FAILURE(status)) transliterator_.reset();
  }
  // True when the other script writes `c` differently; false when it
  // writes it the same way or the data is missing.
  bool own(UChar32 c) const {
    if (!transliterator_) return false;
    icu::UnicodeString text(c);
    transliterator_->transliterate(text);
    return text != icu::UnicodeString(c);
  }

 private:
  std::unique_ptr<icu::Transliterator> transliterator_;
};

HanReading hanReading(tesseract::TessBaseAPI& api, const ScriptForms& forms) {
  HanReading reading;
  std::unique_ptr<tesseract::ResultIterator> it(api.GetIterator());
  if (!it || it->Empty(tesseract::RIL_SYMBOL)) return reading;
  do {
    std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_SYMBOL));
    if (text == nullptr) continue;
    int32_t i = 0;
    UChar32 c = 0;
    const auto length = static_cast<int32_t>(std::strlen(text.get()));
    U8_NEXT(text.get(), i, length, c);
    if (c >= 0 && isHan(c)) {
      const double confidence = it->Confidence(tesseract::RIL_SYMBOL);
      reading.han.add(confidence);
      if (forms.own(c)) reading.ownForms.add(confidence);
    }
  } while (it->Next(tesseract::RIL_SYMBOL));
  return reading;
}

std::vector<std::string> splitCodes(const std::string& joined) {
  std::vector<std::string> codes;
  size_t start = 0;
  while (start <= joined.size()) {
    const size_t end = std::min(joined.find('+', start), joined.size());
    if (end > start) codes.push_back(joined.substr(start, end - start));
    start = end + 1;
  }
  return codes;
}

}  // namespace

// One text line as read: its box and the words on it.
struct ReadLine {
  Box box;
  bool placed = false;  // false for a line without a box, which is left out
  // How far the baseline drops (positive) or rises from the left edge of
  // the box to the right edge, in pixels; 0 for a level line.
  double drop = 0;
  float confidence = 0;
  std::vector<tesseract_text::Word> words;
  // Parallel to `words`: each one's box and confidence (0..100).
  std::vector<Box> boxes;
  std::vector<float> confidences;
};

// The lines of a recognition, boxes moved by (dx, dy) into page
// coordinates, blanks between words measured on `ink` (the page's).
std::vector<ReadLine> readLines(tesseract::TessBaseAPI& api, const InkMap& ink, int dx = 0, int dy = 0) {
  std::vector<ReadLine> lines;
  std::unique_ptr<tesseract::ResultIterator> it(api.GetIterator());
  if (!it || it->Empty(tesseract::RIL_TEXTLINE)) return lines;
  auto shift = [&](Box& b) {
    b.left += dx;
    b.right += dx;
    b.top += dy;
    b.bottom += dy;
  };
  Box previousWord;
  do {
    if (lines.empty() || it->IsAtBeginningOf(tesseract::RIL_TEXTLINE)) {
      ReadLine line;
      line.placed =
          it->BoundingBox(tesseract::RIL_TEXTLINE, &line.box.left, &line.box.top, &line.box.right, &line.box.bottom);
      line.confidence = it->Confidence(tesseract::RIL_TEXTLINE);
      line.drop = baselineDrop(*it, line.box);
      shift(line.box);
      lines.push_back(std::move(line));
    }
    ReadLine& line = lines.back();
    Box box;
    std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_WORD));
    if (text == nullptr || !it->BoundingBox(tesseract::RIL_WORD, &box.left, &box.top, &box.right, &box.bottom))
      continue;
    shift(box);
    tesseract_text::Word word;
    // A word holds no white space; drop any that slips in.
    for (const char* p = text.get(); *p != '\0'; ++p)
      if (*p != ' ' && *p != '\n' && *p != '\t' && *p != '\r') word.text += *p;
    if (word.text.empty()) continue;
    if (!line.words.empty()) word.gapBefore = ink.gap(line.box, previousWord, box);
    line.words.push_back(std::move(word));
    line.boxes.push_back(box);
    line.confidences.push_back(it->Confidence(tesseract::RIL_WORD));
    previousWord = box;
  } while (it->Next(tesseract::RIL_WORD));
  return lines;
}

// What a word read by a Chinese model is made of.
struct WordMakeUp {
  bool han = false;
  bool latin = false;
};

WordMakeUp makeUpOf(const std::string& word) {
  WordMakeUp makeUp;
  int32_t i = 0;
  const auto length = static_cast<int32_t>(word.size());
  while (i < length) {
    UChar32 c = 0;
    U8_NEXT(word.data(), i, length, c);
    if (c < 0) continue;
    UErrorCode status = U_ZERO_ERROR;
    if (isHan(c)) makeUp.han = true;
    if (u_isalpha(c) && uscript_getScript(c, &status) == USCRIPT_LATIN) makeUp.latin = true;
  }
  return makeUp;
}

enum class ReaderKind { page, line, sample };

// What the sample lines of a page showed.
enum class Script { noHan, first, second };

struct TesseractEngine::State {
  std::string tessdataDir;
  Threading threading;
  bool failed = false;
  // What the loaded models were loaded for; a request for anything else
  // drops them.
  bool configured = false;
  std::string languages;
  bool correction = false;
  // How a page is read with `languages`, fixed by them (see recognize).
  // `first` and `second` are the two Chinese models in request order when
  // both are requested, and empty otherwise; `layout` reads the page when
  // it has no Han, and its layout in any case (all requested models, but
  // `second`); `latin` re-reads the Latin runs of a Chinese page (the
  // requested models but the Chinese ones).
  struct Plan {
    std::string first, second, layout, latin;
  } plan;
  // Loaded on first use, each at most once, keyed by models and whether the
  // dictionaries are on: the models reading pages ("chi_sim+eng",
  // "chi_sim", ...) and single lines ("chi_sim+eng", ...), and the Chinese
  // models alone ("chi_sim", "chi_tra") reading sample lines, without
  // dictionaries. One instance serves pages and lines alike.
  std::map<std::pair<std::string, bool>, std::unique_ptr<tesseract::TessBaseAPI>> readers;

  bool configure(const RecognitionRequest& request);
  tesseract::TessBaseAPI* reader(const std::string& languages, ReaderKind kind);
  void dropReaders() { readers.clear(); }
  Script chooseScript(tesseract::TessBaseAPI& page, const GreyImage& grey, int width, int height,
                      const std::string& first, const std::string& second);
  // The page's lines as `api` read them. With `latinLanguages`, the runs of
  // Latin words on them are read again with those models (rereadLatinRuns).
  std::vector<TextObservation> collect(tesseract::TessBaseAPI& api, double width, double height,
                                       const GreyImage& grey, const std::string& latinLanguages);
  // Reads the runs of words on `line` that have Latin letters and no Han
  // again with `languages`, and keeps a run's new reading where its mean
  // confidence is higher by more than kLatinRereadMargin. Returns false
  // when those models fail to load.
  bool rereadLatinRuns(ReadLine& line, const std::string& languages, const GreyImage& grey, const InkMap& ink,
                       int width, int height, int resolution);
  // The forms of the script of "chi_sim" or "chi_tra", made on first use.
  std::map<std::string, std::unique_ptr<ScriptForms>> scriptForms;
  const ScriptForms& forms(const std::string& code) {
    auto& slot = scriptForms[code];
    if (!slot) slot = std::make_unique<ScriptForms>(code == "chi_tra" ? "Hant-Hans" : "Hans-Hant");
    return *slot;
  }
};

bool TesseractEngine::State::configure(const RecognitionRequest& request) {
  if (failed) return false;
  const std::string wanted = tesseract_text::tesseractLanguages(request.languages);
  if (configured && wanted == languages && request.usesLanguageCorrection == correction) return true;
  dropReaders();
  configured = false;
  // Every requested model must be there, even one this page will not need.
  const std::vector<std::string> codes = splitCodes(wanted);
  for (const auto& code : codes) {
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
  plan = Plan{};
  plan.layout = wanted;
  const auto sim = std::find(codes.begin(), codes.end(), "chi_sim");
  const auto tra = std::find(codes.begin(), codes.end(), "chi_tra");
  if (sim != codes.end() && tra != codes.end()) {
    plan.first = sim < tra ? "chi_sim" : "chi_tra";
    plan.second = sim < tra ? "chi_tra" : "chi_sim";
    std::vector<std::string> layout, latin;
    for (const auto& code : codes) {
      if (code != plan.second) layout.push_back(code);
      if (code != plan.first && code != plan.second) latin.push_back(code);
    }
    plan.layout = joinCodes(layout);
    plan.latin = joinCodes(latin);
  }
  return true;
}

tesseract::TessBaseAPI* TesseractEngine::State::reader(const std::string& wanted, ReaderKind kind) {
  const bool withDictionaries = correction && kind != ReaderKind::sample;
  const auto mode = kind == ReaderKind::page ? tesseract::PSM_AUTO : tesseract::PSM_SINGLE_LINE;
  const auto key = std::make_pair(wanted, withDictionaries);
  if (auto found = readers.find(key); found != readers.end()) {
    found->second->SetPageSegMode(mode);
    return found->second.get();
  }
  if (failed) return nullptr;
  // Dictionaries are init-only parameters. The LSTM recogniser loads its
  // own word lists only when it decodes with the ratings matrix
  // (lstm_use_matrix), so that is switched off with the legacy ones. The
  // sample readers only compare confidences and go without.
  const char* dictionaries = withDictionaries ? "1" : "0";
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
    for (const auto& code : splitCodes(wanted))
      all = all && std::find(loaded.begin(), loaded.end(), code) != loaded.end();
    if (all) {
      api->SetPageSegMode(mode);
      return readers.emplace(key, std::move(api)).first->second.get();
    }
  }
  api->End();
  failed = true;
  dropReaders();
  return nullptr;
}

// With `page` holding the page's layout, decides whether the page has Han
// on it, and whether it is rather in the script of the `first` Chinese
// model or the `second`.
Script TesseractEngine::State::chooseScript(tesseract::TessBaseAPI& page, const GreyImage& grey, int width,
                                            int height, const std::string& first, const std::string& second) {
  // Horizontal text lines, in reading order.
  std::vector<Box> lines;
  {
    std::unique_ptr<tesseract::PageIterator> it(page.AnalyseLayout());
    if (!it || it->Empty(tesseract::RIL_TEXTLINE)) return Script::noHan;
    do {
      Box b;
      if (it->BoundingBox(tesseract::RIL_TEXTLINE, &b.left, &b.top, &b.right, &b.bottom) && b.height() >= 8 &&
          b.width() >= 3 * b.height())
        lines.push_back(b);
    } while (it->Next(tesseract::RIL_TEXTLINE));
  }
  if (lines.empty()) return Script::noHan;
  // Spread the sample over the page.
  std::vector<Box> sample;
  const size_t count = std::min<size_t>(lines.size(), kSampleLines);
  for (size_t i = 0; i < count; ++i) sample.push_back(lines[(2 * i + 1) * lines.size() / (2 * count)]);

  const int resolution = page.GetSourceYResolution();
  auto read = [&](tesseract::TessBaseAPI& api, const ScriptForms& forms, const Box& b,
                  int widest = std::numeric_limits<int>::max()) {
    const int pad = std::max(2, b.height() / 4);
    const int left = std::max(b.left - pad, 0);
    // `widest` may be INT_MAX: compare before adding so nothing overflows.
    const int right = widest < width - left ? std::min(b.right + pad, left + widest) : b.right + pad;
    HanReading reading;
    if (recognizeRegion(api, grey, width, height, Box{left, b.top - pad, right, b.bottom + pad}, resolution))
      reading = hanReading(api, forms);
    api.Clear();
    return reading;
  };

  tesseract::TessBaseAPI* firstReader = reader(first, ReaderKind::sample);
  if (firstReader == nullptr) return Script::noHan;
  const ScriptForms& firstForms = forms(first);
  std::vector<Box> hanLines;
  HanReading firstTotal;
  int hanFree = 0;
  for (const Box& b : sample) {
    const int probeWidth = kProbeWidthInHeights * b.height();
    if (hanLines.empty() && b.width() > probeWidth && read(*firstReader, firstForms, b, probeWidth).han.count == 0) {
      if (++hanFree >= kHanFreeLinesToGiveUp) break;
      continue;
    }
    const HanReading r = read(*firstReader, firstForms, b);
    if (r.han.count >= 4) {
      hanLines.push_back(b);
      firstTotal.add(r);
      hanFree = 0;
    } else if (++hanFree >= kHanFreeLinesToGiveUp && hanLines.empty()) {
      break;
    }
    if (static_cast<int>(hanLines.size()) >= kEnoughSampleLines && firstTotal.han.count >= kEnoughHan) break;
  }
  if (hanLines.empty()) return Script::noHan;
  tesseract::TessBaseAPI* secondReader = reader(second, ReaderKind::sample);
  if (secondReader == nullptr) return Script::first;
  const ScriptForms& secondForms = forms(second);
  HanReading secondTotal;
  for (const Box& b : hanLines) secondTotal.add(read(*secondReader, secondForms, b));
  if (secondTotal.han.count == 0) return Script::first;
  // Both models are nearly sure of most characters; what tells them apart
  // is how much doubt each has left, on the characters each wrote in its
  // own script's forms when there are enough of them.
  const bool ownForms =
      firstTotal.ownForms.count >= kEnoughOwnForms && secondTotal.ownForms.count >= kEnoughOwnForms;
  const double firstDoubt = ownForms ? firstTotal.ownForms.doubt() : firstTotal.han.doubt();
  const double secondDoubt = ownForms ? secondTotal.ownForms.doubt() : secondTotal.han.doubt();
  return secondDoubt * kDoubtRatio < firstDoubt && firstDoubt - secondDoubt > kDoubtMargin ? Script::second
                                                                                       : Script::first;
}

bool TesseractEngine::State::rereadLatinRuns(ReadLine& line, const std::string& languages, const GreyImage& grey,
                                             const InkMap& ink, int width, int height, int resolution) {
  // The runs: a word with Latin letters and no Han, and the words without
  // Han after it. Han stands between two runs, so replacing one leaves the
  // boxes and blanks the others are read with as they were; going from the
  // last run to the first keeps their indices valid.
  std::vector<std::pair<size_t, size_t>> runs;
  for (size_t i = 0; i < line.words.size();) {
    const WordMakeUp first = makeUpOf(line.words[i].text);
    if (first.han || !first.latin) {
      ++i;
      continue;
    }
    size_t end = i + 1;
    while (end < line.words.size() && !makeUpOf(line.words[end].text).han) ++end;
    runs.emplace_back(i, end);
    i = end;
  }
  if (runs.empty()) return true;
  tesseract::TessBaseAPI* api = reader(languages, ReaderKind::line);
  if (api == nullptr) return false;

  const Box& lb = line.box;
  auto mean = [](std::vector<float>::const_iterator from, std::vector<float>::const_iterator to) {
    double sum = 0;
    for (auto c = from; c != to; ++c) sum += *c;
    return from == to ? 0.0 : sum / static_cast<double>(to - from);
  };
  bool changed = false;
  for (auto run = runs.rbegin(); run != runs.rend(); ++run) {
    const size_t i = run->first, end = run->second;
    // The run across the whole height of the line, with some blank around
    // it but none of the words next to it.
    const int pad = std::max(2, lb.height() / 4);
    int left = line.boxes[i].left - pad, right = line.boxes[end - 1].right + pad;
    if (i > 0) left = std::max(left, (line.boxes[i - 1].right + line.boxes[i].left) / 2);
    if (end < line.words.size()) right = std::min(right, (line.boxes[end - 1].right + line.boxes[end].left) / 2);
    left = std::max(left, 0);
    right = std::min(right, width);
    const int top = std::max(lb.top - pad, 0), bottom = std::min(lb.bottom + pad, height);
    if (right - left < 4 || bottom - top < 4) continue;
    ReadLine again;
    if (recognizeRegion(*api, grey, width, height, Box{left, top, right, bottom}, resolution))
      for (ReadLine& part : readLines(*api, ink, left, top))
        for (size_t k = 0; k < part.words.size(); ++k) {
          if (k == 0 && !again.boxes.empty()) part.words[k].gapBefore = ink.gap(lb, again.boxes.back(), part.boxes[k]);
          again.words.push_back(std::move(part.words[k]));
          again.boxes.push_back(part.boxes[k]);
          again.confidences.push_back(part.confidences[k]);
        }
    api->Clear();
    const auto from = line.confidences.begin() + static_cast<std::ptrdiff_t>(i);
    const auto to = line.confidences.begin() + static_cast<std::ptrdiff_t>(end);
    if (again.words.empty() ||
        mean(again.confidences.begin(), again.confidences.end()) <= mean(from, to) + kLatinRereadMargin)
      continue;
    again.words.front().gapBefore = line.words[i].gapBefore;
    auto replace = [&](auto& into, auto& with) {
      into.erase(into.begin() + static_cast<std::ptrdiff_t>(i), into.begin() + static_cast<std::ptrdiff_t>(end));
      into.insert(into.begin() + static_cast<std::ptrdiff_t>(i), with.begin(), with.end());
    };
    replace(line.words, again.words);
    replace(line.boxes, again.boxes);
    replace(line.confidences, again.confidences);
    const size_t next = i + again.words.size();
    if (next < line.words.size()) line.words[next].gapBefore = ink.gap(lb, line.boxes[next - 1], line.boxes[next]);
    changed = true;
  }
  if (changed) line.confidence = static_cast<float>(mean(line.confidences.begin(), line.confidences.end()));
  return true;
}

std::vector<TextObservation> TesseractEngine::State::collect(tesseract::TessBaseAPI& api, double width,
                                                            double height, const GreyImage& grey,
                                                            const std::string& latinLanguages) {
  std::vector<TextObservation> observations;
  const int w = static_cast<int>(width), h = static_cast<int>(height);
  const InkMap ink(api.GetThresholdedImage(), w, h);
  std::vector<ReadLine> lines = readLines(api, ink);
  if (!latinLanguages.empty()) {
    const int resolution = api.GetSourceYResolution();
    for (ReadLine& line : lines)
      if (line.placed && line.box.width() >= line.box.height() && line.box.height() >= 4 &&
          !rereadLatinRuns(line, latinLanguages, grey, ink, w, h, resolution))
        return observations;  // the caller sees `failed`
  }

  observations.reserve(lines.size());
  for (const ReadLine& line : lines) {
    if (!line.placed) continue;
    TextObservation o;
    const int thickness = std::min(line.box.width(), line.box.height());
    std::string text = tesseract_text::joinLineWords(line.words, thickness);
    if (!text.empty())
      o.candidate = RecognizedCandidate{std::move(text), std::clamp(line.confidence / 100.0f, 0.0f, 1.0f)};
    // A sloped line gets the parallelogram between two parallels to its
    // baseline instead of its bounding box: the box of a line on a page
    // fed in askew is mostly blank and overlaps the lines next to it.
    const Box& b = line.box;
    const double down = std::max(line.drop, 0.0), up = std::max(-line.drop, 0.0);
    o.topLeft = normalised(b.left, b.top + up, width, height);
    o.topRight = normalised(b.right, b.top + down, width, height);
    o.bottomRight = normalised(b.right, b.bottom - up, width, height);
    o.bottomLeft = normalised(b.left, b.bottom - down, width, height);
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
  State& state = *state_;
  if (!state.configure(request)) return std::nullopt;

  const int width = static_cast<int>(image.width());
  const int height = static_cast<int>(image.height());
  GreyImage grey;
  if (!toGrey(image, grey)) return std::nullopt;
  const int ppi = image.pixelsPerInch() > 0
                      ? static_cast<int>(std::lround(std::min(image.pixelsPerInch(),
                                                              static_cast<double>(std::numeric_limits<int>::max()))))
                      : 0;
  // Tesseract copies the pixels into its own image.
  auto load = [&](tesseract::TessBaseAPI& api) {
    api.SetImage(grey.data, width, height, 1, width);
    if (ppi > 0) api.SetSourceResolution(ppi);
  };

  // The models to read the page with: all requested; or, when both Chinese
  // models are, one of them (see chooseScript). A page with Han is read
  // with that model alone, the runs of Latin words on it then again with
  // the other requested models: read with several models at once,
  // Tesseract reads most lines of a Chinese page a second time with the
  // English model, to no benefit where the line is all Chinese. A page
  // without Han is read with the first Chinese model and the others.
  const State::Plan& plan = state.plan;
  tesseract::TessBaseAPI* api = nullptr;
  std::string latinLanguages;
  std::optional<std::vector<TextObservation>> result;
  try {
    api = state.reader(plan.layout, ReaderKind::page);
    if (api == nullptr) return std::nullopt;
    load(*api);
    if (!plan.second.empty()) {
      const Script script = state.chooseScript(*api, grey, width, height, plan.first, plan.second);
      if (state.failed) {
        api = nullptr;  // released with the others
        return std::nullopt;
      }
      if (script != Script::noHan) {
        latinLanguages = plan.latin;
        // Unless that is the model the layout was found with, alone.
        if (script == Script::second || !latinLanguages.empty()) {
          api->Clear();
          api = state.reader(script == Script::first ? plan.first : plan.second, ReaderKind::page);
          if (api == nullptr) return std::nullopt;
          load(*api);
        }
      }
    }
    if (api->Recognize(nullptr) == 0) result = state.collect(*api, width, height, grey, latinLanguages);
    if (state.failed) {
      // A model for the lines failed to load: the readers are gone.
      api = nullptr;
      result.reset();
    }
  } catch (const std::bad_alloc&) {
    result.reset();
  }
  if (api != nullptr) api->Clear();
  return result;
}

}  // namespace kvo
