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

// Recognises the part of the page inside `region`, clipped to the page, on
// its own with `api`. Returns false when none of it is on the page or
// recognition fails; the caller reads the result and then clears `api`.
bool recognizeRegion(tesseract::TessBaseAPI& api, const GreyImage& grey, int width, int height, const Box& wanted,
                     int resolution) {
  const std::optional<Box> region = recognition::clipToPage(wanted, width, height);
  if (!region) return false;
  api.SetImage(grey.data + static_cast<size_t>(region->top) * width + region->left, region->width(),
               region->height(), 1, width);
  if (resolution > 0) api.SetSourceResolution(resolution);
  return api.Recognize(nullptr) == 0;
}

// The Han characters of what `api` recognised last, boxes moved by (dx, dy).
HanReading hanReading(tesseract::TessBaseAPI& api, const ScriptForms& forms, int dx, int dy) {
  HanReading reading;
  std::unique_ptr<tesseract::ResultIterator> it(api.GetIterator());
  if (!it || it->Empty(tesseract::RIL_SYMBOL)) return reading;
  do {
    std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_SYMBOL));
    Box box;
    if (text == nullptr) continue;
    if (it->BoundingBox(tesseract::RIL_SYMBOL, &box.left, &box.top, &box.right, &box.bottom)) shift(box, dx, dy);
    reading.addSymbol(text.get(), it->Confidence(tesseract::RIL_SYMBOL), forms, box);
  } while (it->Next(tesseract::RIL_SYMBOL));
  return reading;
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

// The layout analysis of `api`'s page.
Layout analyseLayout(tesseract::TessBaseAPI& api) {
  Layout layout;
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

// How sure `api` is of its reading of `region` of the page, turned as
// `turn` says, as its mean word confidence (0..100); -1 when it cannot be
// read.
int readingConfidence(tesseract::TessBaseAPI& api, const GreyImage& grey, int width, int height,
                      const Box& wanted, RegionTurn turn) {
  const std::optional<Box> region = recognition::clipToPage(wanted, width, height);
  if (!region) return -1;
  GreyImage crop, turned;
  const int w = region->width(), h = region->height();
  crop.data = static_cast<uint8_t*>(std::malloc(static_cast<size_t>(w) * static_cast<size_t>(h)));
  if (crop.data == nullptr) return -1;
  for (int y = 0; y < h; ++y)
    std::copy_n(grey.data + static_cast<size_t>(region->top + y) * width + region->left, w,
                crop.data + static_cast<size_t>(y) * w);
  const GreyImage* read = &crop;
  int readWidth = w, readHeight = h;
  if (turn == RegionTurn::half) {
    if (!recognition::turnGreyHalf(crop, w, h, turned)) return -1;
    read = &turned;
  } else if (turn != RegionTurn::none) {
    if (!recognition::turnGreyQuarter(crop, w, h, turn == RegionTurn::clockwise, turned)) return -1;
    read = &turned;
    std::swap(readWidth, readHeight);
  }
  api.SetImage(read->data, readWidth, readHeight, 1, readWidth);
  const int confidence = api.Recognize(nullptr) == 0 ? api.MeanTextConf() : -1;
  api.Clear();
  return confidence;
}

// How thick each line is: its height, or its width when it stands upright.
std::vector<int> lineThicknesses(const std::vector<Box>& lines) {
  std::vector<int> thicknesses;
  thicknesses.reserve(lines.size());
  for (const Box& b : lines) thicknesses.push_back(b.thickness());
  return thicknesses;
}

// Crooked pages. Leptonica's skew finder measures the angle of the text
// lines on the binarised page with the steps and on the page reduced as
// recognition/PagePreparation says (the search at half the reduction);
// whether the page is turned by it is straighteningAngle's to say.

// The skew of the binarised page `binary`, or of its rows [top, bottom).
recognition::SkewMeasure measureSkew(Pix* binary, int reduction, int top, int bottom) {
  recognition::SkewMeasure measure;
  Pix* part = binary;
  if (top > 0 || bottom < static_cast<int>(pixGetHeight(binary))) {
    BOX* rows = boxCreate(0, top, pixGetWidth(binary), bottom - top);
    part = rows == nullptr ? nullptr : pixClipRectangle(binary, rows, nullptr);
    boxDestroy(&rows);
  }
  l_float32 degrees = 0, confidence = 0;
  if (part != nullptr &&
      pixFindSkewSweepAndSearch(part, &degrees, &confidence, reduction, std::max(1, reduction / 2),
                                static_cast<l_float32>(recognition::kSkewSweepDegrees),
                                static_cast<l_float32>(recognition::kSkewSweepStep),
                                static_cast<l_float32>(recognition::kSkewLeastSearchStep)) == 0) {
    measure.found = confidence > 0;
    measure.degrees = degrees;
    measure.confidence = confidence;
  }
  if (part != binary) pixDestroy(&part);
  return measure;
}

// A Leptonica copy of a grey page; null when the memory cannot be had.
Pix* greyPix(const GreyImage& grey, int width, int height) {
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

Pix* localInkAtHalf(const GreyImage& grey, int width, int height, int halfWindow) {
  // Leptonica's factor for Sauvola's threshold, as in its own examples.
  constexpr l_float32 kSauvolaFactor = 0.35f;
  // Tiles of about a million pixels keep the window sums a few megabytes.
  constexpr int kTileSide = 1024;
  Pix* pix = greyPix(grey, width, height);
  if (pix == nullptr) return nullptr;
  Pix* half = pixScaleAreaMap2(pix);
  pixDestroy(&pix);
  if (half == nullptr) return nullptr;
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
  return ink;
}

// The page straightened when its text lines slope: `turned` holds the
// straight page and the result says how it maps back. nullopt when the page
// is straight, no slope is found with confidence, or memory runs out.
std::optional<recognition::PageTurn> straighten(const GreyImage& grey, int width, int height, int inkLevel,
                                                GreyImage& turned) {
  Pix* pix = greyPix(grey, width, height);
  if (pix == nullptr) return std::nullopt;
  std::optional<recognition::PageTurn> turn;
  Pix* binary = pixThresholdToBinary(pix, inkLevel + 1);
  const int reduction = recognition::skewReduction(width);
  std::optional<double> degrees;
  if (binary != nullptr) {
    const recognition::SkewMeasure whole = measureSkew(binary, reduction, 0, height);
    std::optional<recognition::SkewMeasure> top, bottom;
    if (recognition::asksForHalves(whole)) {
      top = measureSkew(binary, reduction, 0, height / 2);
      bottom = measureSkew(binary, reduction, height / 2, height);
    }
    degrees = recognition::straighteningAngle(whole, top, bottom);
  }
  if (degrees) {
    // Clockwise is positive for both calls; given the page's own size,
    // pixRotate enlarges the canvas (centred) so that no pixel is lost. The
    // corners it brings in white take the page's own edge instead
    // (recognition/PagePreparation: fillTurnedCorners).
    const double radians = *degrees * M_PI / 180.0;
    Pix* rotated = pixRotate(pix, static_cast<l_float32>(radians), L_ROTATE_AREA_MAP, L_BRING_IN_WHITE, width, height);
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
        turn = recognition::PageTurn{radians, width, height, tw, th};
        recognition::fillTurnedCorners(*turn, recognition::groundLevel(grey, width, height, inkLevel), turned);
      }
    }
    pixDestroy(&rotated);
  }
  pixDestroy(&binary);
  pixDestroy(&pix);
  return turn;
}

}  // namespace kvo::tesseract_reading
