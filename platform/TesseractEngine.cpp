#include "platform/TesseractEngine.h"

#include <leptonica/allheaders.h>
#include <omp.h>
#include <tesseract/baseapi.h>

#include <utility>

#include "platform/TesseractReader.h"
#include "recognition/PageReading.h"
#include "recognition/ReadingPlan.h"

namespace kvo {

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

}  // namespace

struct TesseractEngine::State {
  State(std::string tessdataDir, Threading threading) : threading(threading), reader(std::move(tessdataDir)) {}
  Threading threading;
  TesseractReader reader;
  // What the reader was configured for; a request for anything else
  // configures it again.
  bool configured = false;
  std::string models;
  bool correction = false;
  std::unique_ptr<recognition::PageReading> reading;

  bool configure(const RecognitionRequest& request) {
    const std::string wanted = recognition::modelCodes(request.languages);
    if (configured && wanted == models && request.usesLanguageCorrection == correction) return !reader.failed();
    configured = false;
    reading.reset();
    if (!reader.configure(wanted, request.usesLanguageCorrection)) return false;
    configured = true;
    models = wanted;
    correction = request.usesLanguageCorrection;
    reading = std::make_unique<recognition::PageReading>(reader, recognition::ReadingPlan::forModels(wanted));
    return true;
  }
};

std::string TesseractEngine::defaultTessdataDir() { return KVO_TESSDATA_DIR; }

TesseractEngine::TesseractEngine(std::string tessdataDir, Threading threading) {
  silenceLibrariesOnce();
  state_ = std::make_unique<State>(std::move(tessdataDir), threading);
}

TesseractEngine::~TesseractEngine() = default;

std::optional<std::vector<TextObservation>> TesseractEngine::recognize(const Bitmap& image,
                                                                       const RecognitionRequest& request) {
  SingleThreadRegions singleThread(state_->threading == Threading::singleThread);
  if (!state_->configure(request)) return std::nullopt;
  return state_->reading->read(image);
}

}  // namespace kvo
