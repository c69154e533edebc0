#include "platform/PopplerPdfLibrary.h"

#include <Error.h>
#include <ErrorCodes.h>
#include <GlobalParams.h>
#include <PDFDoc.h>
#include <Page.h>
#include <SplashOutputDev.h>
#include <TextOutputDev.h>
#include <goo/GooString.h>
#include <goo/gmem.h>
#include <splash/SplashBitmap.h>
#include <splash/SplashTypes.h>
#include <Stream.h>
#include <XRef.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <mutex>

#if defined(__SANITIZE_ADDRESS__)
#define KVO_LEAK_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KVO_LEAK_SANITIZER 1
#endif
#endif

#ifdef KVO_LEAK_SANITIZER
// Sanitizer builds only. fontconfig, which Poppler asks for substitutes of
// fonts a PDF does not embed, loses a few hundred bytes while parsing its
// configuration, once per process. LeakSanitizer would report that at exit
// and turn the exit status into a failure in every program that reads such
// a PDF, so the leak (in a system library, not in this code) is suppressed
// here, beside the dependency that causes it. A program may define this hook
// only once: add further suppressions to this list.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
#endif

namespace kvo {

namespace {

// Poppler reports recoverable and unrecoverable problems alike through this
// callback; without one it prints them to stderr. The caller learns what it
// needs from return values, so every diagnostic is dropped.
void discardDiagnostic(ErrorCategory, Goffset, const char*) {}

void setUpPopplerOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    // Before GlobalParams: its constructor may already report problems
    // (unreadable poppler-data files, for instance).
    setErrorCallback(&discardDiagnostic);
    if (!globalParams) globalParams = std::make_unique<GlobalParams>();
    // Also quiet: Poppler then stays silent even without a callback.
    globalParams->setErrQuiet(true);
  });
}

void appendText(void* stream, const char* text, int length) {
  if (length > 0) static_cast<std::string*>(stream)->append(text, static_cast<size_t>(length));
}

// SplashOutputDev that records whether a page was actually begun: only then
// is its bitmap the requested size and filled with the paper colour.
class PageRenderer final : public SplashOutputDev {
 public:
  explicit PageRenderer(SplashColorPtr paper)
      : SplashOutputDev(splashModeRGB8, /*bitmapRowPad=*/1, /*reverseVideo=*/false, paper,
                        /*bitmapTopDown=*/true, splashThinLineDefault) {}

  void startPage(int pageNum, GfxState* state, XRef* xref) override {
    SplashOutputDev::startPage(pageNum, state, xref);
    started_ = true;
  }

  bool started() const { return started_; }

 private:
  bool started_ = false;
};

// Content streams are parsed for drawing operators. One decoded through an
// image filter (JBIG2, JPEG, JPEG 2000, CCITT fax) yields image samples and
// holds none: whatever it decodes to draws nothing. Decoding it can still cost minutes and
// gigabytes (a JBIG2 "bomb" declares a bitmap of 100,000 × 100,000 pixels),
// so each such stream of a page is replaced, in the document's memory only,
// by an empty one before the page is drawn or its text is read.
void emptyImageContentStreams(XRef& xref, Page& page) {
  static const char kNothing[] = "";
  Object pageObject = xref.fetch(page.getRef());
  if (!pageObject.isDict()) return;
  std::vector<Ref> streams;
  auto collect = [&](const Object& entry) {
    if (entry.isRef()) streams.push_back(entry.getRef());
  };
  Object contents = pageObject.dictLookupNF("Contents").copy();
  if (contents.isRef()) {
    Object target = xref.fetch(contents.getRef());
    if (!target.isArray()) collect(contents);
    else contents = std::move(target);
  }
  if (contents.isArray())
    for (int i = 0; i < contents.arrayGetLength(); ++i) collect(contents.arrayGetNF(i));
  for (const Ref& ref : streams) {
    Object stream = xref.fetch(ref);
    if (!stream.isStream()) continue;
    // /Filter is one name or an array of them.
    auto decodesToImage = [](const Object& name) {
      return name.isName() && PopplerPdfLibrary::decodesToImage(name.getName());
    };
    const Object filters = stream.streamGetDict()->lookup("Filter");
    bool image = decodesToImage(filters);
    for (int i = 0; filters.isArray() && i < filters.arrayGetLength() && !image; ++i)
      image = decodesToImage(filters.arrayGet(i));
    if (!image) continue;
    Object empty(static_cast<Stream*>(new MemStream(kNothing, 0, 0, Object(new Dict(&xref)))));
    xref.setModifiedObject(&empty, ref);
  }
}

bool fitsInInt(double value) { return std::isfinite(value) && value >= INT_MIN && value <= INT_MAX; }

class PopplerPage final : public PdfPage {
 public:
  PopplerPage(std::shared_ptr<PDFDoc> doc, Page* page, int number)
      : doc_(std::move(doc)), page_(page), number_(number) {}

  PdfBox mediaBox() override {
    // Poppler has already normalised the box so that x1 <= x2 and y1 <= y2.
    const PDFRectangle* box = page_->getMediaBox();
    return {box->x1, box->y1, box->x2 - box->x1, box->y2 - box->y1};
  }

  // The text as `pdftotext` (without -layout or -raw) prints it: words in
  // reading order, one line per text line, an empty line after each flow of
  // blocks; UTF-8 through Poppler's default text encoding; no form feed.
  std::string text() override {
    std::string text;
    TextOutputDev device(&appendText, &text, /*physLayoutA=*/false, /*fixedPitchA=*/0,
                         /*rawOrderA=*/false, /*discardDiagA=*/false);
    if (!device.isOk()) return {};
    device.setTextEOL(eolUnix);
    device.setTextPageBreaks(false);
    doc_->displayPage(&device, number_, 72, 72, /*rotate=*/0, /*useMediaBox=*/true, /*crop=*/false,
                      /*printing=*/false);
    return text;
  }

  Bitmap render(int64_t width, int64_t height, double scaleX, double scaleY, double translateX,
                double translateY) override {
    if (width <= 0 || height <= 0 || width > INT_MAX || height > INT_MAX) return {};
    if (!std::isfinite(scaleX) || !std::isfinite(scaleY) || scaleX <= 0 || scaleY <= 0) return {};
    if (!std::isfinite(translateX) || !std::isfinite(translateY)) return {};

    // Splash draws the slice (sliceX, sliceY, width, height), in pixels at
    // the given resolution, measured from the media box's top-left corner
    // (x1, y2). The requested mapping, pixel = scale × (point + translate)
    // with y growing upwards from the bitmap's bottom edge, puts the
    // bitmap's left edge at page x = −translateX and its bottom edge at
    // page y = −translateY. Slices are whole pixels, so the translation is
    // honoured to the nearest pixel; the usual call (translate = −origin,
    // scale = size / media size) gives slice (0, 0) and draws the media box
    // exactly onto the bitmap, with no margin.
    const PDFRectangle* media = page_->getMediaBox();
    const double sliceX = std::round(scaleX * (-translateX - media->x1));
    const double sliceY = std::round(scaleY * (media->y2 + translateY) - static_cast<double>(height));
    const double hDPI = 72.0 * scaleX;
    const double vDPI = 72.0 * scaleY;
    if (!fitsInInt(sliceX) || !fitsInInt(sliceY) || !std::isfinite(hDPI) || !std::isfinite(vDPI)) return {};

    // The caller sizes the bitmap from the unrotated media box, so the page
    // is drawn unrotated: Poppler adds the page's /Rotate to the rotation
    // passed here, and passing its complement makes the sum 0 (mod 360).
    // Drawing it rotated would map a W × H box onto an H × W slice.
    const int rotate = (360 - page_->getRotate() % 360) % 360;

    SplashColor paper;
    paper[0] = paper[1] = paper[2] = 0xff;
    // pdftoppm's defaults: anti-aliased glyphs and vectors, no hinting.
    PageRenderer renderer(paper);
    renderer.setFontAntialias(true);
    renderer.setVectorAntialias(true);
    renderer.setFreeTypeHinting(false, false);
    renderer.startDoc(doc_.get());
    doc_->displayPageSlice(&renderer, number_, hDPI, vDPI, rotate, /*useMediaBox=*/true, /*crop=*/false,
                           /*printing=*/false, static_cast<int>(sliceX), static_cast<int>(sliceY),
                           static_cast<int>(width), static_cast<int>(height));
    if (!renderer.started()) return {};

    // Splash falls back to a 1 × 1 bitmap when the requested one cannot be
    // allocated; anything but the exact size is a failure.
    std::unique_ptr<SplashBitmap> bitmap(renderer.takeBitmap());
    if (!bitmap || bitmap->getMode() != splashModeRGB8 || bitmap->getWidth() != width ||
        bitmap->getHeight() != height || bitmap->getRowSize() < width * 3) {
      return {};
    }
    const auto stride = static_cast<size_t>(bitmap->getRowSize());
    // takeData hands over the gmalloc'ed pixel rows; gfree releases them.
    uint8_t* pixels = bitmap->takeData();
    if (pixels == nullptr) return {};
    Bitmap result = Bitmap::adopt(width, height, stride, PixelFormat::rgb8, pixels, &gfree);
    result.setPixelsPerInch(vDPI);
    return result;
  }

 private:
  std::shared_ptr<PDFDoc> doc_;
  Page* page_;  // owned by doc_'s catalog
  int number_;  // 1-based, as Poppler counts
};

class PopplerDocument final : public PdfDocument {
 public:
  // A readable document.
  explicit PopplerDocument(std::shared_ptr<PDFDoc> doc) : doc_(std::move(doc)) {}
  // A document that needs a user password; nothing of it can be read.
  PopplerDocument() = default;

  bool isEncrypted() override { return doc_ == nullptr || doc_->isEncrypted(); }
  bool isLocked() override { return doc_ == nullptr; }

  // The count the page tree declares, as Poppler (and `pdfinfo`, `qpdf
  // --show-npages`) reports it. It is a claim: a declared page may be
  // missing or sit in a loop of the tree, and page() says so for that index.
  int64_t pageCount() override {
    if (doc_ == nullptr) return 0;
    return std::max(0, doc_->getNumPages());
  }

  std::unique_ptr<PdfPage> page(int64_t index) override {
    if (doc_ == nullptr || index < 0 || index >= pageCount()) return nullptr;
    const int number = static_cast<int>(index) + 1;
    Page* page = doc_->getPage(number);
    if (page == nullptr || !page->isOk()) return nullptr;
    if (doc_->getXRef() != nullptr) emptyImageContentStreams(*doc_->getXRef(), *page);
    return std::make_unique<PopplerPage>(doc_, page, number);
  }

 private:
  std::shared_ptr<PDFDoc> doc_;
};

}  // namespace

PopplerPdfLibrary::PopplerPdfLibrary() { setUpPopplerOnce(); }

bool PopplerPdfLibrary::decodesToImage(const std::string& filter) {
  // The full names and the abbreviations inline images use.
  static const char* const kImageFilters[] = {"JBIG2Decode", "DCTDecode", "DCT", "JPXDecode", "CCITTFaxDecode", "CCF"};
  return std::find(std::begin(kImageFilters), std::end(kImageFilters), filter) != std::end(kImageFilters);
}

std::unique_ptr<PdfDocument> PopplerPdfLibrary::open(const std::string& path) {
  // No password given: Poppler then tries the empty one, so a document
  // protected only by an owner password opens normally.
  auto doc = std::make_shared<PDFDoc>(std::make_unique<GooString>(path));
  if (doc->isOk()) return std::make_unique<PopplerDocument>(std::move(doc));
  if (doc->getErrorCode() == errEncrypted) return std::make_unique<PopplerDocument>();
  return nullptr;
}

}  // namespace kvo
