// The PP-OCR reader against the real runtime and networks: rendered lines of
// known text read back with their quadrilaterals in the page's pixels, one
// thread while a page is read, nothing printed, and every way of failing to
// open classified. Skipped where scripts/fetch_onnx.sh has not run.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "onnx/RenderedLine.h"
#include "platform/onnx/OnnxTextReader.h"

namespace kvo::onnx {
namespace {

namespace fs = std::filesystem;
using testing::renderLine;
using testing::RenderedLine;

bool installed(const ReaderOptions& options) {
  for (const std::string& file : {options.detectorFile, options.recognizerFile, options.classifierFile,
                                  options.characterList})
    if (!fs::is_regular_file(options.modelsDirectory + "/" + file)) return false;
  return fs::is_regular_file(options.runtimeLibrary);
}

#define SKIP_WITHOUT_MODELS()                                                              \
  if (!installed(defaultReaderOptions())) GTEST_SKIP() << "PP-OCR runtime or models not installed " \
                                                          "(scripts/fetch_onnx.sh)"

std::unique_ptr<OnnxTextReader> openReader(ReaderOptions options = defaultReaderOptions()) {
  auto opened = OnnxTextReader::open(options);
  if (auto* error = std::get_if<ReaderError>(&opened)) {
    ADD_FAILURE() << kindName(error->kind) << ": " << error->message;
    return nullptr;
  }
  return std::move(std::get<std::unique_ptr<OnnxTextReader>>(opened));
}

std::string withoutSpaces(std::string text) {
  std::erase(text, ' ');
  return text;
}

size_t codePoints(const std::string& text) {
  size_t n = 0;
  for (unsigned char c : text) n += (c & 0xC0) != 0x80;
  return n;
}

int threadCount(pid_t pid) {
  int n = 0;
  for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task")) ++n;
  return n;
}

// The one line of `line` detected and read, with its quadrilateral checked
// against where the text was drawn.
void expectReadBack(OnnxTextReader& reader, const PageView& page, const RenderedLine& line, const std::string& text,
                    double pixelSize) {
  auto detected = reader.detectLines(page);
  ASSERT_TRUE(std::holds_alternative<std::vector<TextQuad>>(detected)) << std::get<ReaderError>(detected).message;
  const auto& quads = std::get<std::vector<TextQuad>>(detected);
  ASSERT_EQ(quads.size(), 1u);
  const TextQuad& quad = quads[0];
  EXPECT_GE(quad.score, 0.6f);
  EXPECT_LE(quad.score, 1.0f);
  // Each corner near the drawn text's corner: DB's grown box reaches a
  // little beyond the ink, never by much.
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(quad.corners[i].x, line.ink[i].x, 0.5 * pixelSize) << "corner " << i;
    EXPECT_NEAR(quad.corners[i].y, line.ink[i].y, 0.5 * pixelSize) << "corner " << i;
  }
  auto read = reader.readLine(page, quad);
  ASSERT_TRUE(std::holds_alternative<LineReading>(read)) << std::get<ReaderError>(read).message;
  const LineReading& reading = std::get<LineReading>(read);
  EXPECT_EQ(withoutSpaces(reading.text), withoutSpaces(text));
  EXPECT_GT(reading.confidence, 0.8f);
  EXPECT_LE(reading.confidence, 1.0f);
  EXPECT_EQ(reading.characterConfidences.size(), codePoints(reading.text));
}

const std::string kMixed = "文字识别测试OCR2026年";

TEST(OnnxTextReader, ReadsARenderedLineWithItsQuadrilateralInThePagesPixels) {
  SKIP_WITHOUT_MODELS();
  auto reader = openReader();
  ASSERT_TRUE(reader);
  RenderedLine line = renderLine(kMixed, 40, 0, 900, 160);
  expectReadBack(*reader, line.view(), line, kMixed, 40);
}

TEST(OnnxTextReader, ATurnedLineGetsATurnedQuadrilateral) {
  SKIP_WITHOUT_MODELS();
  auto reader = openReader();
  ASSERT_TRUE(reader);
  RenderedLine line = renderLine(kMixed, 40, 7, 900, 300);
  expectReadBack(*reader, line.view(), line, kMixed, 40);
}

TEST(OnnxTextReader, RgbAndRgbaPagesReadAsTheGreyOne) {
  SKIP_WITHOUT_MODELS();
  auto reader = openReader();
  ASSERT_TRUE(reader);
  RenderedLine line = renderLine("The quick brown fox 42", 36, 0, 800, 140, "DejaVu Sans");
  for (int channels : {3, 4}) {
    std::vector<uint8_t> pixels = line.withChannels(channels);
    PageView page{pixels.data(), line.width, line.height, channels, size_t(line.width) * channels};
    expectReadBack(*reader, page, line, "The quick brown fox 42", 36);
  }
}

TEST(OnnxTextReader, AnUpsideDownLineIsTurnedByTheClassifier) {
  SKIP_WITHOUT_MODELS();
  ReaderOptions options = defaultReaderOptions();
  options.useClassifier = true;
  auto reader = openReader(options);
  ASSERT_TRUE(reader);
  RenderedLine line = renderLine(kMixed, 40, 180, 900, 160);
  auto quads = std::get<std::vector<TextQuad>>(reader->detectLines(line.view()));
  ASSERT_EQ(quads.size(), 1u);
  auto reading = std::get<LineReading>(reader->readLine(line.view(), quads[0]));
  EXPECT_TRUE(reading.turnedHalf);
  EXPECT_EQ(reading.text, kMixed);
}

TEST(OnnxTextReader, ABlankPageHasNoLines) {
  SKIP_WITHOUT_MODELS();
  auto reader = openReader();
  ASSERT_TRUE(reader);
  std::vector<uint8_t> white(640 * 480, 255);
  auto quads = std::get<std::vector<TextQuad>>(reader->detectLines(PageView{white.data(), 640, 480, 1, 640}));
  EXPECT_TRUE(quads.empty());
}

TEST(OnnxTextReader, APageWithoutPixelsIsAnInvalidPage) {
  SKIP_WITHOUT_MODELS();
  auto reader = openReader();
  ASSERT_TRUE(reader);
  auto detected = reader->detectLines(PageView{nullptr, 10, 10, 1, 10});
  ASSERT_TRUE(std::holds_alternative<ReaderError>(detected));
  EXPECT_EQ(std::get<ReaderError>(detected).kind, ReaderError::Kind::InvalidPage);
  uint8_t pixel = 255;
  auto read = reader->readLine(PageView{&pixel, 1, 1, 1, 1}, TextQuad{});
  ASSERT_TRUE(std::holds_alternative<ReaderError>(read));
  EXPECT_EQ(std::get<ReaderError>(read).kind, ReaderError::Kind::InvalidPage);
}

// The reader in a child process reading the page over and over while this
// process counts the child's threads.
TEST(OnnxTextReader, ThePageIsReadOnTheCallingThreadOnly) {
  SKIP_WITHOUT_MODELS();
  RenderedLine line = renderLine(kMixed, 40, 3, 900, 200);
  int ready[2];
  ASSERT_EQ(::pipe(ready), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(ready[0]);
    ::unsetenv("ORT_DISABLE_TELEMETRY");  // the reader must set it itself
    ReaderOptions options = defaultReaderOptions();
    options.useClassifier = true;
    auto opened = OnnxTextReader::open(options);
    if (!std::holds_alternative<std::unique_ptr<OnnxTextReader>>(opened)) ::_exit(3);
    auto& reader = *std::get<std::unique_ptr<OnnxTextReader>>(opened);
    int afterOpen = threadCount(::getpid());
    if (afterOpen != 1) {
      for (const auto& entry : fs::directory_iterator("/proc/self/task")) {
        std::ifstream comm(entry.path() / "comm");
        std::string name;
        std::getline(comm, name);
        std::fprintf(stderr, "thread after open: %s\n", name.c_str());
      }
    }
    (void)!::write(ready[1], "r", 1);
    auto until = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    int worst = afterOpen;
    do {
      auto quads = std::get<std::vector<TextQuad>>(reader.detectLines(line.view()));
      for (const auto& quad : quads) (void)reader.readLine(line.view(), quad);
      worst = std::max(worst, threadCount(::getpid()));
      if (worst > 1) {
        for (const auto& entry : fs::directory_iterator("/proc/self/task")) {
          std::ifstream comm(entry.path() / "comm");
          std::string name;
          std::getline(comm, name);
          std::fprintf(stderr, "thread while reading: %s\n", name.c_str());
        }
        break;
      }
    } while (std::chrono::steady_clock::now() < until);
    ::_exit(worst == 1 ? 0 : 10 + worst);
  }
  ::close(ready[1]);
  char byte;
  ASSERT_EQ(::read(ready[0], &byte, 1), 1) << "the child could not open the reader";
  int most = 0;
  int status = 0;
  while (::waitpid(child, &status, WNOHANG) == 0) {
    std::error_code ignored;
    int n = 0;
    for (auto it = fs::directory_iterator("/proc/" + std::to_string(child) + "/task", ignored);
         !ignored && it != fs::directory_iterator(); it.increment(ignored))
      ++n;
    most = std::max(most, n);
    ::usleep(500);
  }
  ::close(ready[0]);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "threads seen by the reader itself: " << WEXITSTATUS(status) - 10;
  EXPECT_EQ(most, 1);
}

// Runs `body` with descriptors 1 and 2 pointed at a file; returns what landed there.
template <class Body>
std::string captured(Body body) {
  std::string path = (fs::temp_directory_path() / ("kvo-onnx-out-" + std::to_string(::getpid()))).string();
  std::fflush(nullptr);
  int saved1 = ::dup(1), saved2 = ::dup(2);
  int out = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  ::dup2(out, 1);
  ::dup2(out, 2);
  body();
  std::fflush(nullptr);
  ::dup2(saved1, 1);
  ::dup2(saved2, 2);
  ::close(saved1), ::close(saved2), ::close(out);
  std::ifstream file(path);
  std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  fs::remove(path);
  return text;
}

// A models directory holding copies of the real files, less or spoiled.
struct ScratchModels {
  fs::path dir = fs::temp_directory_path() / ("kvo-onnx-models-" + std::to_string(::getpid()));
  ScratchModels() {
    fs::create_directories(dir);
    const ReaderOptions defaults = defaultReaderOptions();
    for (const auto& entry : fs::directory_iterator(defaults.modelsDirectory))
      fs::copy_file(entry.path(), dir / entry.path().filename(), fs::copy_options::overwrite_existing);
  }
  ~ScratchModels() { fs::remove_all(dir); }
  ReaderOptions options() const {
    ReaderOptions o = defaultReaderOptions();
    o.modelsDirectory = dir.string();
    return o;
  }
};

ReaderError::Kind openFailure(const ReaderOptions& options) {
  auto opened = OnnxTextReader::open(options);
  if (!std::holds_alternative<ReaderError>(opened)) {
    ADD_FAILURE() << "opened";
    return ReaderError::Kind::RunFailed;
  }
  EXPECT_FALSE(std::get<ReaderError>(opened).message.empty());
  return std::get<ReaderError>(opened).kind;
}

TEST(OnnxTextReader, AMissingModelFileIsClassified) {
  SKIP_WITHOUT_MODELS();
  for (const char* file : {"ch_PP-OCRv4_det_infer.onnx", "ch_PP-OCRv4_rec_infer.onnx", "ppocr_keys_v1.txt"}) {
    ScratchModels models;
    fs::remove(models.dir / file);
    EXPECT_EQ(openFailure(models.options()), ReaderError::Kind::ModelMissing) << file;
  }
}

TEST(OnnxTextReader, ADamagedModelFileIsClassifiedAndPrintsNothing) {
  SKIP_WITHOUT_MODELS();
  for (const char* file : {"ch_PP-OCRv4_det_infer.onnx", "ch_PP-OCRv4_rec_infer.onnx"}) {
    for (bool truncate : {true, false}) {
      ScratchModels models;
      fs::path path = models.dir / file;
      if (truncate) {
        fs::resize_file(path, fs::file_size(path) / 2);
      } else {
        std::ofstream(path, std::ios::trunc) << "not a network\n";
      }
      ReaderError::Kind kind{};
      std::string printed = captured([&] { kind = openFailure(models.options()); });
      EXPECT_EQ(kind, ReaderError::Kind::ModelDamaged) << file << (truncate ? " cut short" : " replaced");
      EXPECT_EQ(printed, "") << file;
    }
  }
}

TEST(OnnxTextReader, OpeningAndReadingPrintNothing) {
  SKIP_WITHOUT_MODELS();
  RenderedLine line = renderLine(kMixed, 40, 0, 900, 160);
  std::string printed = captured([&] {
    ReaderOptions options = defaultReaderOptions();
    options.useClassifier = true;
    auto reader = openReader(options);
    ASSERT_TRUE(reader);
    auto quads = std::get<std::vector<TextQuad>>(reader->detectLines(line.view()));
    for (const auto& quad : quads) (void)reader->readLine(line.view(), quad);
  });
  EXPECT_EQ(printed, "");
}

// The runtime is loaded once a process and never unloaded, so each way of
// failing to load it is tried in a fresh child process; the child's exit
// status carries the kind.
int kindInChild(const std::string& library) {
  pid_t child = ::fork();
  if (child == 0) {
    ReaderOptions options = defaultReaderOptions();
    options.runtimeLibrary = library;
    auto opened = OnnxTextReader::open(options);
    ::_exit(std::holds_alternative<ReaderError>(opened) ? 20 + int(std::get<ReaderError>(opened).kind) : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(OnnxTextReader, AMissingOrDamagedRuntimeIsClassified) {
  SKIP_WITHOUT_MODELS();
  fs::path dir = fs::temp_directory_path() / ("kvo-onnx-runtime-" + std::to_string(::getpid()));
  fs::create_directories(dir);
  std::ofstream(dir / "garbage.so") << "not a shared object\n";
  EXPECT_EQ(kindInChild((dir / "absent.so").string()), 20 + int(ReaderError::Kind::RuntimeMissing));
  EXPECT_EQ(kindInChild((dir / "garbage.so").string()), 20 + int(ReaderError::Kind::RuntimeDamaged));
  // A real shared object that is not the runtime.
  EXPECT_EQ(kindInChild("/lib/x86_64-linux-gnu/libz.so.1"), 20 + int(ReaderError::Kind::RuntimeDamaged));
  fs::remove_all(dir);
}

}  // namespace
}  // namespace kvo::onnx
