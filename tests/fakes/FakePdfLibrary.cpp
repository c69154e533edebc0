#include "fakes/FakePdfLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "fakes/FakeBitmap.h"

namespace kvo::fakes {

struct FakePdfLibrary::State {
  EventLog* events = nullptr;
  std::map<std::string, FakePdfDocument> scripts;
  std::vector<std::string> opens;
  std::vector<std::string> queries;
  std::vector<RenderCall> renders;
  int textRequests = 0;
  int pageRequests = 0;
  int lockedViolations = 0;

  void event(const std::string& e) {
    if (events) events->add(e);
  }
};

namespace {

class Page : public PdfPage {
 public:
  Page(std::shared_ptr<FakePdfLibrary::State> state, FakePdfPage page, int64_t index)
      : state_(std::move(state)), page_(std::move(page)), index_(index) {}

  PdfBox mediaBox() override { return page_.mediaBox; }

  std::string text() override {
    ++state_->textRequests;
    return page_.text;
  }

  Bitmap render(int64_t width, int64_t height, double scaleX, double scaleY, double translateX,
                double translateY) override {
    state_->renders.push_back(
        RenderCall{index_, width, height, scaleX, scaleY, translateX, translateY, liveFakeBitmaps()});
    state_->event("pdf.render " + std::to_string(index_) + " " + std::to_string(width) + "x" +
                  std::to_string(height));
    switch (page_.render) {
      case RenderOutcome::bitmap:
        return makeFakeBitmap(width, height, 0xFF);
      case RenderOutcome::noBitmap:
        return Bitmap();
      case RenderOutcome::wrongSize:
        return makeFakeBitmap(std::max<int64_t>(1, width - 1), height, 0xFF);
    }
    return Bitmap();
  }

 private:
  std::shared_ptr<FakePdfLibrary::State> state_;
  FakePdfPage page_;
  int64_t index_;
};

class Document : public PdfDocument {
 public:
  Document(std::shared_ptr<FakePdfLibrary::State> state, FakePdfDocument document)
      : state_(std::move(state)), document_(std::move(document)) {}

  bool isEncrypted() override {
    state_->queries.push_back("isEncrypted");
    return document_.encrypted;
  }

  bool isLocked() override {
    state_->queries.push_back("isLocked");
    return document_.locked;
  }

  int64_t pageCount() override {
    state_->queries.push_back("pageCount");
    guardLocked("pageCount");
    return document_.pageCount.value_or(static_cast<int64_t>(document_.pages.size()));
  }

  std::unique_ptr<PdfPage> page(int64_t index) override {
    state_->queries.push_back("page " + std::to_string(index));
    state_->event("pdf.page " + std::to_string(index));
    ++state_->pageRequests;
    guardLocked("a page");
    if (index < 0 || index >= static_cast<int64_t>(document_.pages.size())) return nullptr;
    const auto& page = document_.pages[static_cast<size_t>(index)];
    if (!page) return nullptr;
    return std::make_unique<Page>(state_, *page, index);
  }

 private:
  void guardLocked(const char* what) {
    if (!document_.locked) return;
    ++state_->lockedViolations;
    ADD_FAILURE() << "a locked document was asked for " << what;
  }

  std::shared_ptr<FakePdfLibrary::State> state_;
  FakePdfDocument document_;
};

}  // namespace

FakePdfLibrary::FakePdfLibrary(EventLog* events) : state_(std::make_shared<State>()) { state_->events = events; }

void FakePdfLibrary::script(const std::string& path, FakePdfDocument document) {
  state_->scripts[path] = std::move(document);
}

std::unique_ptr<PdfDocument> FakePdfLibrary::open(const std::string& path) {
  state_->opens.push_back(path);
  state_->event("pdf.open " + path);
  auto it = state_->scripts.find(path);
  if (it == state_->scripts.end()) return nullptr;
  return std::make_unique<Document>(state_, it->second);
}

std::unique_ptr<PdfDocument> FakePdfLibrary::openDirectly(FakePdfDocument document) {
  return std::make_unique<Document>(state_, std::move(document));
}

std::unique_ptr<PdfPage> FakePdfLibrary::pageDirectly(FakePdfPage page, int64_t index) {
  return std::make_unique<Page>(state_, std::move(page), index);
}

const std::vector<std::string>& FakePdfLibrary::opens() const { return state_->opens; }
const std::vector<std::string>& FakePdfLibrary::documentQueries() const { return state_->queries; }
const std::vector<RenderCall>& FakePdfLibrary::renders() const { return state_->renders; }
int FakePdfLibrary::textRequests() const { return state_->textRequests; }
int FakePdfLibrary::pageRequests() const { return state_->pageRequests; }
int FakePdfLibrary::lockedViolations() const { return state_->lockedViolations; }

}  // namespace kvo::fakes
