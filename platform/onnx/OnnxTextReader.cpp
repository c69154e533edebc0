#include "platform/onnx/OnnxTextReader.h"

// The runtime is opened with dlopen instead of being linked: a missing or
// broken library then is an error value of open() rather than the dynamic
// loader refusing to start the helper at all. The C++ API is initialised by
// hand from the library's own OrtGetApiBase.
#define ORT_API_MANUAL_INIT
#include <onnxruntime_cxx_api.h>
#undef ORT_API_MANUAL_INIT

#include <dlfcn.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "platform/onnx/PpOcrProcessing.h"

namespace kvo::onnx {
namespace {

using Kind = ReaderError::Kind;

ReaderError failure(Kind kind, std::string message) { return ReaderError{kind, std::move(message)}; }

bool isFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

// The runtime's log goes nowhere: the helper's streams carry its own
// result only.
void ORT_API_CALL silentLog(void*, OrtLoggingLevel, const char*, const char*, const char*, const char*) {}

// Loads the runtime once a process (it is never unloaded: the runtime keeps
// process-wide state) and points the C++ API at it.
std::optional<ReaderError> loadRuntime(const std::string& library) {
  static std::mutex lock;
  static std::string loaded;
  std::lock_guard guard(lock);
  if (!loaded.empty()) return std::nullopt;
  if (!isFile(library)) return failure(Kind::RuntimeMissing, "no ONNX Runtime library at " + library);
  void* handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = ::dlerror();
    return failure(Kind::RuntimeDamaged, "the ONNX Runtime library cannot be loaded: " + std::string(why ? why : library));
  }
  using GetApiBase = const OrtApiBase* (*)();
  auto getApiBase = reinterpret_cast<GetApiBase>(::dlsym(handle, "OrtGetApiBase"));
  const OrtApi* api = getApiBase != nullptr ? getApiBase()->GetApi(ORT_API_VERSION) : nullptr;
  if (api == nullptr) {
    ::dlclose(handle);
    return failure(Kind::RuntimeDamaged, library + " is not an ONNX Runtime of API version " +
                                             std::to_string(ORT_API_VERSION) + " or later");
  }
  Ort::InitApi(api);
  loaded = library;
  return std::nullopt;
}

GraphOptimizationLevel level(GraphOptimization optimization) {
  switch (optimization) {
    case GraphOptimization::Disabled: return ORT_DISABLE_ALL;
    case GraphOptimization::Basic: return ORT_ENABLE_BASIC;
    case GraphOptimization::Extended: return ORT_ENABLE_EXTENDED;
    case GraphOptimization::All: break;
  }
  return ORT_ENABLE_ALL;
}

// A network with its single input's and first output's names.
struct Network {
  Ort::Session session{nullptr};
  std::string input;
  std::string output;
};

Outcome<Network> openNetwork(Ort::Env& env, const ReaderOptions& options, const std::string& file) {
  std::string path = options.modelsDirectory + "/" + file;
  if (!isFile(path)) return failure(Kind::ModelMissing, "no model file " + path);
  try {
    Ort::SessionOptions settings;
    settings.SetIntraOpNumThreads(1);
    settings.SetInterOpNumThreads(1);
    settings.SetExecutionMode(ORT_SEQUENTIAL);
    settings.AddConfigEntry("session.intra_op.allow_spinning", "0");
    settings.AddConfigEntry("session.inter_op.allow_spinning", "0");
    settings.SetLogSeverityLevel(ORT_LOGGING_LEVEL_FATAL);
    if (!options.cpuArena) settings.DisableCpuMemArena();
    if (!options.memoryPattern) settings.DisableMemPattern();
    settings.SetGraphOptimizationLevel(level(options.optimization));
    if (!options.optimizedModelsDirectory.empty()) {
      std::string optimized = options.optimizedModelsDirectory + "/" + file;
      if (isFile(optimized)) {
        path = optimized;
        settings.SetGraphOptimizationLevel(ORT_DISABLE_ALL);
      } else {
        settings.SetOptimizedModelFilePath(optimized.c_str());
      }
    }
    Network network;
    network.session = Ort::Session(env, path.c_str(), settings);
    if (network.session.GetInputCount() != 1 || network.session.GetOutputCount() < 1)
      return failure(Kind::ModelDamaged, path + " does not have one input and an output");
    Ort::AllocatorWithDefaultOptions allocator;
    network.input = network.session.GetInputNameAllocated(0, allocator).get();
    network.output = network.session.GetOutputNameAllocated(0, allocator).get();
    return network;
  } catch (const std::exception& error) {
    return failure(Kind::ModelDamaged, "the runtime refused " + path + ": " + error.what());
  }
}

// Runs `network` on one NCHW tensor; the output's shape lands in `shape`.
Ort::Value run(Network& network, ppocr::Tensor& tensor, std::vector<int64_t>& shape) {
  static const Ort::MemoryInfo memory = Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
  const int64_t dims[4] = {1, tensor.channels, tensor.height, tensor.width};
  Ort::Value input = Ort::Value::CreateTensor<float>(memory, tensor.data.data(), tensor.data.size(), dims, 4);
  const char* inputName = network.input.c_str();
  const char* outputName = network.output.c_str();
  auto outputs = network.session.Run(Ort::RunOptions{nullptr}, &inputName, &input, 1, &outputName, 1);
  shape = outputs[0].GetTensorTypeAndShapeInfo().GetShape();
  return std::move(outputs[0]);
}

int64_t product(const std::vector<int64_t>& shape) {
  int64_t n = 1;
  for (int64_t d : shape) n *= d;
  return n;
}

}  // namespace

struct OnnxTextReader::State {
  ReaderOptions options;
  Ort::Env env{nullptr};
  Network detector, recognizer, classifier;
  std::vector<std::string> characters;
  OnnxTextReader::OpenTimes times;
};

const char* kindName(ReaderError::Kind kind) {
  switch (kind) {
    case Kind::RuntimeMissing: return "runtime-missing";
    case Kind::RuntimeDamaged: return "runtime-damaged";
    case Kind::ModelMissing: return "model-missing";
    case Kind::ModelDamaged: return "model-damaged";
    case Kind::InvalidPage: return "invalid-page";
    case Kind::RunFailed: break;
  }
  return "run-failed";
}

ReaderOptions defaultReaderOptions() {
  ReaderOptions options;
  options.runtimeLibrary = KVO_ONNXRUNTIME_LIBRARY;
  options.modelsDirectory = KVO_OCR_MODELS_DIR;
  return options;
}

OnnxTextReader::OnnxTextReader(std::unique_ptr<State> state) : state_(std::move(state)) {}
OnnxTextReader::~OnnxTextReader() = default;
const OnnxTextReader::OpenTimes& OnnxTextReader::openTimes() const { return state_->times; }

Outcome<std::unique_ptr<OnnxTextReader>> OnnxTextReader::open(const ReaderOptions& options) {
  auto mark = std::chrono::steady_clock::now();
  auto lap = [&mark] {
    auto now = std::chrono::steady_clock::now();
    return std::chrono::duration<double>(now - std::exchange(mark, now)).count();
  };
  // Without this the runtime starts a telemetry thread with its environment;
  // the reader sends nothing and runs on the calling thread only. Set before
  // the library is even loaded, whose initialisation may read it.
  ::setenv("ORT_DISABLE_TELEMETRY", "1", 1);
  if (auto error = loadRuntime(options.runtimeLibrary)) return *error;
  ppocr::keepOpenCvOnCallingThread();
  auto state = std::make_unique<State>();
  state->times.runtime = lap();
  state->options = options;
  state->characters = ppocr::loadCharacterList(options.modelsDirectory + "/" + options.characterList);
  if (state->characters.empty())
    return failure(Kind::ModelMissing, "no character list " + options.modelsDirectory + "/" + options.characterList);
  try {
    state->env = Ort::Env(ORT_LOGGING_LEVEL_FATAL, "kem-vision-ocr", silentLog, nullptr);
    state->env.DisableTelemetryEvents();
    state->times.environment = lap();
  } catch (const std::exception& error) {
    return failure(Kind::RuntimeDamaged, std::string("the ONNX Runtime environment failed: ") + error.what());
  }
  struct Slot {
    Network* network;
    const std::string* file;
    double* seconds;
  };
  std::vector<Slot> slots{{&state->detector, &options.detectorFile, &state->times.detector},
                          {&state->recognizer, &options.recognizerFile, &state->times.recognizer}};
  if (options.useClassifier) slots.push_back({&state->classifier, &options.classifierFile, &state->times.classifier});
  for (const Slot& slot : slots) {
    auto network = openNetwork(state->env, options, *slot.file);
    if (auto* error = std::get_if<ReaderError>(&network)) return *error;
    *slot.network = std::move(std::get<Network>(network));
    *slot.seconds = lap();
  }
  return std::unique_ptr<OnnxTextReader>(new OnnxTextReader(std::move(state)));
}

Outcome<std::vector<TextQuad>> OnnxTextReader::detectLines(const PageView& page) {
  if (std::string why = ppocr::checkPage(page); !why.empty()) return failure(Kind::InvalidPage, why);
  try {
    ppocr::Tensor input = ppocr::detectorInput(ppocr::wrapPage(page), state_->options.detectorLimitSide);
    std::vector<int64_t> shape;
    Ort::Value map = run(state_->detector, input, shape);
    if (shape.size() != 4 || shape[2] != input.height || shape[3] != input.width)
      return failure(Kind::ModelDamaged, "the detector's output is not a probability map of its input's size");
    ppocr::DbParameters db{state_->options.binaryThreshold, state_->options.boxThreshold, state_->options.unclipRatio};
    return ppocr::linesFromProbability(map.GetTensorData<float>(), input.height, input.width, page.width, page.height, db);
  } catch (const std::exception& error) {
    return failure(Kind::RunFailed, std::string("text detection failed: ") + error.what());
  }
}

Outcome<LineReading> OnnxTextReader::readLine(const PageView& page, const TextQuad& quad) {
  if (std::string why = ppocr::checkPage(page); !why.empty()) return failure(Kind::InvalidPage, why);
  try {
    cv::Mat crop = ppocr::cropLine(ppocr::wrapPage(page), quad);
    if (crop.empty()) return failure(Kind::InvalidPage, "the line's quadrilateral has no area");
    std::vector<int64_t> shape;
    bool turned = false;
    if (state_->options.useClassifier) {
      float upsideDown = 0;
      std::vector<ppocr::Tensor> windows = ppocr::classifierInputs(crop);
      for (ppocr::Tensor& input : windows) {
        Ort::Value scores = run(state_->classifier, input, shape);
        if (product(shape) != 2) return failure(Kind::ModelDamaged, "the classifier does not answer 0 or 180 degrees");
        upsideDown += scores.GetTensorData<float>()[1] / float(windows.size());
      }
      // PaddleOCR's rule: turn only when 180 degrees is the sure answer.
      turned = upsideDown > 0.9f;
      if (turned) cv::rotate(crop, crop, cv::ROTATE_180);
    }
    ppocr::Tensor input = ppocr::recognizerInput(crop);
    Ort::Value scores = run(state_->recognizer, input, shape);
    if (shape.size() != 3 || shape[2] != int64_t(state_->characters.size()))
      return failure(Kind::ModelDamaged, "the recogniser's classes do not match the character list");
    LineReading reading = ppocr::decodeCtc(scores.GetTensorData<float>(), int(shape[1]), int(shape[2]), state_->characters);
    reading.turnedHalf = turned;
    return reading;
  } catch (const std::exception& error) {
    return failure(Kind::RunFailed, std::string("line recognition failed: ") + error.what());
  }
}

}  // namespace kvo::onnx
