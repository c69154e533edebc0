#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fakes/EventLog.h"
#include "interfaces/PdfLibrary.h"

namespace kvo::fakes {

enum class RenderOutcome {
  bitmap,     // a white bitmap of the size asked for
  noBitmap,   // an invalid Bitmap (cannot allocate or draw)
  wrongSize,  // a bitmap one pixel narrower than asked for
};

struct FakePdfPage {
  PdfBox mediaBox{0, 0, 612, 792};  // US Letter
  std::string text;                 // the page's own text layer
  RenderOutcome render = RenderOutcome::bitmap;

  static FakePdfPage withText(std::string text) {
    FakePdfPage page;
    page.text = std::move(text);
    return page;
  }
  static FakePdfPage ofSize(double width, double height, std::string text = {}) {
    FakePdfPage page;
    page.mediaBox = PdfBox{0, 0, width, height};
    page.text = std::move(text);
    return page;
  }
};

struct FakePdfDocument {
  bool encrypted = false;
  bool locked = false;
  // The count the document reports; when unset, the number of `pages`.
  std::optional<int64_t> pageCount;
  // The pages that can be had; an empty entry, or an index past the end,
  // gives no page.
  std::vector<std::optional<FakePdfPage>> pages;

  static FakePdfDocument of(std::vector<FakePdfPage> pages) {
    FakePdfDocument document;
    for (auto& page : pages) document.pages.emplace_back(std::move(page));
    return document;
  }
  // `count` identical pages.
  static FakePdfDocument repeated(int64_t count, const FakePdfPage& page = {}) {
    FakePdfDocument document;
    document.pages.assign(static_cast<size_t>(count), page);
    return document;
  }
};

// One PdfPage::render call.
struct RenderCall {
  int64_t pageIndex = 0;
  int64_t width = 0;
  int64_t height = 0;
  double scaleX = 0, scaleY = 0, translateX = 0, translateY = 0;
  int liveBitmapsBefore = 0;  // fake bitmaps alive when the call began
};

// A PDF library with scripted documents per path (unscripted paths do not
// parse). Records every question asked of a document and every render, and
// fails the running test if a locked document is asked anything beyond
// isEncrypted and isLocked.
class FakePdfLibrary : public PdfLibrary {
 public:
  explicit FakePdfLibrary(EventLog* events = nullptr);

  void script(const std::string& path, FakePdfDocument document);
  std::unique_ptr<PdfDocument> open(const std::string& path) override;

  // A document or a single page made directly, for tests of the steps that
  // take them as arguments. They record like opened ones.
  std::unique_ptr<PdfDocument> openDirectly(FakePdfDocument document);
  std::unique_ptr<PdfPage> pageDirectly(FakePdfPage page, int64_t index = 0);

  const std::vector<std::string>& opens() const;
  // "isEncrypted", "isLocked", "pageCount", "page 3", in order, for every
  // document.
  const std::vector<std::string>& documentQueries() const;
  const std::vector<RenderCall>& renders() const;
  int textRequests() const;
  int pageRequests() const;
  int lockedViolations() const;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace kvo::fakes
