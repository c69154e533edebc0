#include "platform/TesseractReading.h"

#include <tesseract/resultiterator.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "recognition/PagePreparation.h"

namespace kvo::tesseract_reading {

namespace {

// Moves `b` by (dx, dy): from the region a recognition was given into page coordinates.
void shift(Box& b, int dx, int dy) {
  b.left += dx;
  b.right += dx;
  b.top += dy;
  b.bottom += dy;
}

}  // namespace

InkPage takeInk(Pix* binary, int width, int height) {
  InkPage page;
  if (binary != nullptr && pixGetDepth(binary) == 1 && static_cast<int>(pixGetWidth(binary)) == width &&
      static_cast<int>(pixGetHeight(binary)) == height) {
    const int wpl = pixGetWpl(binary);
    const l_uint32* data = pixGetData(binary);
    page = InkPage(std::vector<uint32_t>(data, data + static_cast<size_t>(wpl) * static_cast<size_t>(height)), wpl,
                   width, height);
  }
  pixDestroy(&binary);
  return page;
}

// Recognises the part of the page inside `region`, clipped to the page, on
// its own with `api`. Returns false when none of it is on the page or
// recognition fails; the caller reads the result and then clears `api`.
bool recognizeRegion(tesseract::TessBaseAPI& api, const GreyImage& grey, const Box& wanted, int resolution) {
  const int width = grey.width, height = grey.height;
  const std::optional<Box> region = recognition::clipToPage(wanted, width, height);
  if (!region) return false;
  api.SetImage(grey.data + static_cast<size_t>(region->top) * width + region->left, region->width(),
               region->height(), 1, width);
  if (resolution > 0) api.SetSourceResolution(resolution);
  return api.Recognize(nullptr) == 0;
}

std::vector<TextReader::Symbol> symbols(tesseract::TessBaseAPI& api, int dx, int dy) {
  std::vector<TextReader::Symbol> found;
  std::unique_ptr<tesseract::ResultIterator> it(api.GetIterator());
  if (!it || it->Empty(tesseract::RIL_SYMBOL)) return found;
  do {
    std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_SYMBOL));
    if (text == nullptr) continue;
    TextReader::Symbol symbol;
    Box& box = symbol.box;
    if (it->BoundingBox(tesseract::RIL_SYMBOL, &box.left, &box.top, &box.right, &box.bottom)) shift(box, dx, dy);
    symbol.text = text.get();
    symbol.confidence = it->Confidence(tesseract::RIL_SYMBOL);
    found.push_back(std::move(symbol));
  } while (it->Next(tesseract::RIL_SYMBOL));
  return found;
}

// The lines of a recognition, boxes moved by (dx, dy) into page
// coordinates, blanks between words measured on `ink` (the page's).
std::vector<ReadLine> readLines(tesseract::TessBaseAPI& api, const InkBits* ink, int dx, int dy) {
  std::vector<ReadLine> lines;
  std::unique_ptr<tesseract::ResultIterator> it(api.GetIterator());
  if (!it || it->Empty(tesseract::RIL_TEXTLINE)) return lines;
  Box previousWord;
  do {
    if (lines.empty() || it->IsAtBeginningOf(tesseract::RIL_TEXTLINE)) {
      ReadLine line;
      line.placed =
          it->BoundingBox(tesseract::RIL_TEXTLINE, &line.box.left, &line.box.top, &line.box.right, &line.box.bottom);
      line.confidence = it->Confidence(tesseract::RIL_TEXTLINE);
      int x1 = 0, y1 = 0, x2 = 0, y2 = 0;
      if (it->Baseline(tesseract::RIL_TEXTLINE, &x1, &y1, &x2, &y2))
        line.drop = recognition::baselineDrop(x1, y1, x2, y2, line.box);
      shift(line.box, dx, dy);
      lines.push_back(std::move(line));
    }
    ReadLine& line = lines.back();
    Box box;
    std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_WORD));
    if (text == nullptr || !it->BoundingBox(tesseract::RIL_WORD, &box.left, &box.top, &box.right, &box.bottom))
      continue;
    shift(box, dx, dy);
    recognition::Word word;
    // A word holds no white space; drop any that slips in.
    for (const char* p = text.get(); *p != '\0'; ++p)
      if (*p != ' ' && *p != '\n' && *p != '\t' && *p != '\r') word.text += *p;
    if (word.text.empty()) continue;
    if (!line.words.empty()) word.gapBefore = recognition::blankBetween(ink, line.box, previousWord, box);
    line.words.push_back(std::move(word));
    line.boxes.push_back(box);
    line.confidences.push_back(it->Confidence(tesseract::RIL_WORD));
    previousWord = box;
  } while (it->Next(tesseract::RIL_WORD));
  return lines;
}

TextReader::Layout analyseLayout(tesseract::TessBaseAPI& api) {
  TextReader::Layout layout;
  std::unique_ptr<tesseract::PageIterator> it(api.AnalyseLayout());
  if (!it || it->Empty(tesseract::RIL_TEXTLINE)) return layout;
  do {
    Box b;
    if (!it->BoundingBox(tesseract::RIL_TEXTLINE, &b.left, &b.top, &b.right, &b.bottom)) continue;
    layout.lines.push_back(b);
    tesseract::Orientation orientation = tesseract::ORIENTATION_PAGE_UP;
    tesseract::WritingDirection direction = tesseract::WRITING_DIRECTION_LEFT_TO_RIGHT;
    tesseract::TextlineOrder order = tesseract::TEXTLINE_ORDER_TOP_TO_BOTTOM;
    float deskew = 0;
    it->Orientation(&orientation, &direction, &order, &deskew);
    const int64_t area = static_cast<int64_t>(b.width()) * b.height();
    (direction == tesseract::WRITING_DIRECTION_TOP_TO_BOTTOM ? layout.down : layout.across) += area;
  } while (it->Next(tesseract::RIL_TEXTLINE));
  return layout;
}

int readingConfidence(tesseract::TessBaseAPI& api, const GreyImage& grey, const Box& wanted,
                      TextReader::RegionTurn turn) {
  const int width = grey.width, height = grey.height;
  using RegionTurn = TextReader::RegionTurn;
  const std::optional<Box> region = recognition::clipToPage(wanted, width, height);
  if (!region) return -1;
  GreyImage crop, turned;
  const int w = region->width(), h = region->height();
  if (!crop.allocate(w, h)) return -1;
  for (int y = 0; y < h; ++y)
    std::copy_n(grey.data + static_cast<size_t>(region->top + y) * width + region->left, w,
                crop.data + static_cast<size_t>(y) * w);
  const GreyImage* read = &crop;
  int readWidth = w, readHeight = h;
  if (turn == RegionTurn::half) {
    if (!recognition::turnGreyHalf(crop, turned)) return -1;
    read = &turned;
  } else if (turn != RegionTurn::none) {
    if (!recognition::turnGreyQuarter(crop, turn == RegionTurn::clockwise, turned)) return -1;
    read = &turned;
    std::swap(readWidth, readHeight);
  }
  api.SetImage(read->data, readWidth, readHeight, 1, readWidth);
  const int confidence = api.Recognize(nullptr) == 0 ? api.MeanTextConf() : -1;
  api.Clear();
  return confidence;
}

// Crooked pages. Leptonica's skew finder measures the angle of the text
// lines on the binarised page with the steps and on the page reduced as
// recognition/PagePreparation says (the search at half the reduction);
// whether the page is turned by it is straighteningAngle's to say.

SkewMeasure measureSkew(const GreyImage& grey, int top, int bottom, int inkLevel, int reduction) {
  const int width = grey.width;
  SkewMeasure measure;
  if (bottom <= top) return measure;
  GreyImage rows;
  rows.data = grey.data + static_cast<size_t>(top) * static_cast<size_t>(width);
  rows.width = width;
  rows.height = bottom - top;
  Pix* pix = greyPix(rows);
  rows.data = nullptr;  // borrowed
  Pix* binary = pix == nullptr ? nullptr : pixThresholdToBinary(pix, inkLevel + 1);
  l_float32 degrees = 0, confidence = 0;
  if (binary != nullptr &&
      pixFindSkewSweepAndSearch(binary, &degrees, &confidence, reduction, std::max(1, reduction / 2),
                                static_cast<l_float32>(recognition::kSkewSweepDegrees),
                                static_cast<l_float32>(recognition::kSkewSweepStep),
                                static_cast<l_float32>(recognition::kSkewLeastSearchStep)) == 0) {
    measure.found = confidence > 0;
    measure.degrees = degrees;
    measure.confidence = confidence;
  }
  pixDestroy(&binary);
  pixDestroy(&pix);
  return measure;
}

// A Leptonica copy of a grey page; null when the memory cannot be had.
Pix* greyPix(const GreyImage& grey) {
  const int width = grey.width, height = grey.height;
  Pix* pix = pixCreate(width, height, 8);
  if (pix == nullptr) return nullptr;
  l_uint32* data = pixGetData(pix);
  const int wpl = pixGetWpl(pix);
  for (int y = 0; y < height; ++y) {
    const uint8_t* src = grey.data + static_cast<size_t>(y) * width;
    l_uint32* line = data + static_cast<size_t>(y) * wpl;
    for (int x = 0; x < width; ++x) SET_DATA_BYTE(line, x, src[x]);
  }
  return pix;
}

InkPage localInkAtHalf(const GreyImage& grey, int halfWindow) {
  const int width = grey.width, height = grey.height;
  // Leptonica's factor for Sauvola's threshold, as in its own examples.
  constexpr l_float32 kSauvolaFactor = 0.35f;
  // Tiles of about a million pixels keep the window sums a few megabytes.
  constexpr int kTileSide = 1024;
  Pix* pix = greyPix(grey);
  if (pix == nullptr) return {};
  Pix* half = pixScaleAreaMap2(pix);
  pixDestroy(&pix);
  if (half == nullptr) return {};
  const int w = pixGetWidth(half), h = pixGetHeight(half);
  halfWindow = std::min(halfWindow / 2, (std::min(w, h) - 3) / 2);
  Pix* ink = nullptr;
  if (halfWindow >= 2) {
    // Each tile must hold a window and more.
    const int nx = std::max(1, std::min(w / kTileSide, w / (2 * halfWindow + 3)));
    const int ny = std::max(1, std::min(h / kTileSide, h / (2 * halfWindow + 3)));
    if (pixSauvolaBinarizeTiled(half, halfWindow, kSauvolaFactor, nx, ny, nullptr, &ink) != 0) pixDestroy(&ink);
  }
  pixDestroy(&half);
  return takeInk(ink, width / 2, height / 2);
}

bool rotate(const GreyImage& grey, double radians, GreyImage& turned) {
  const int width = grey.width, height = grey.height;
  Pix* pix = greyPix(grey);
  if (pix == nullptr) return false;
  // Clockwise is positive; given the page's own size, pixRotate enlarges the
  // canvas (centred) so that no pixel is lost.
  Pix* rotated = pixRotate(pix, static_cast<l_float32>(radians), L_ROTATE_AREA_MAP, L_BRING_IN_WHITE, width, height);
  pixDestroy(&pix);
  bool done = false;
  if (rotated != nullptr && pixGetDepth(rotated) == 8 && pixGetWidth(rotated) <= kMaxSide &&
      pixGetHeight(rotated) <= kMaxSide) {
    const int tw = pixGetWidth(rotated), th = pixGetHeight(rotated);
    auto* data = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(tw) * static_cast<size_t>(th)));
    if (data != nullptr) {
      const l_uint32* rows = pixGetData(rotated);
      const int wpl = pixGetWpl(rotated);
      for (int y = 0; y < th; ++y) {
        const l_uint32* line = rows + static_cast<size_t>(y) * wpl;
        uint8_t* dst = data + static_cast<size_t>(y) * tw;
        for (int x = 0; x < tw; ++x) dst[x] = static_cast<uint8_t>(GET_DATA_BYTE(line, x));
      }
      std::free(turned.data);
      turned.data = data;
      turned.width = tw;
      turned.height = th;
      done = true;
    }
  }
  pixDestroy(&rotated);
  return done;
}

}  // namespace kvo::tesseract_reading
