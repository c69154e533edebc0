// Measures the PP-OCR reader on one page in one process, so that the peak
// resident size is this configuration's alone:
//   onnx_reader_bench PAGE.pgm|PAGE.ppm [--opt none|basic|extended|all] [--arena on|off]
//                     [--mem-pattern on|off] [--limit N] [--optimized-dir DIR] [--classifier on|off]
//                     [--open-only] [--text FILE]
// The page is held as RGBA, as the helper holds a bitmap. Prints one line of
// key=value figures: sessions' start-up (runtime load, environment, the
// networks), CPU seconds for detection and recognition, lines found, peak
// RSS after opening and after the page, and the most threads seen.

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "platform/onnx/OnnxTextReader.h"

using namespace kvo::onnx;

namespace {

double cpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return double(t.tv_sec) + t.tv_nsec / 1e9;
}

double wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

long statusKib(const char* key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind(key, 0) == 0) return std::stol(line.substr(std::strlen(key)));
  return -1;
}

int threads() {
  int n = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) ++n;
  return n;
}

// Binary PGM (P5) or PPM (P6), 8 bits, into RGBA.
bool loadPage(const std::string& path, std::vector<uint8_t>& rgba, int& width, int& height) {
  std::ifstream file(path, std::ios::binary);
  std::string magic;
  int maxValue = 0;
  file >> magic >> width >> height >> maxValue;
  file.get();
  if (!file || (magic != "P5" && magic != "P6") || maxValue != 255) return false;
  int channels = magic == "P5" ? 1 : 3;
  std::vector<uint8_t> row(size_t(width) * channels);
  rgba.resize(size_t(width) * height * 4);
  for (int y = 0; y < height; ++y) {
    if (!file.read(reinterpret_cast<char*>(row.data()), std::streamsize(row.size()))) return false;
    uint8_t* out = rgba.data() + size_t(y) * width * 4;
    for (int x = 0; x < width; ++x)
      for (int c = 0; c < 4; ++c) out[4 * x + c] = c == 3 ? 255 : row[size_t(x) * channels + (channels == 1 ? 0 : c)];
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s PAGE.pgm|PAGE.ppm [options]\n", argv[0]);
    return 2;
  }
  ReaderOptions options = defaultReaderOptions();
  bool openOnly = false;
  std::string textPath;
  for (int i = 2; i + 1 < argc || (i < argc && std::strcmp(argv[i], "--open-only") == 0); ++i) {
    std::string flag = argv[i];
    if (flag == "--open-only") {
      openOnly = true;
      continue;
    }
    std::string value = argv[++i];
    if (flag == "--opt")
      options.optimization = value == "none"       ? GraphOptimization::Disabled
                             : value == "basic"    ? GraphOptimization::Basic
                             : value == "extended" ? GraphOptimization::Extended
                                                   : GraphOptimization::All;
    else if (flag == "--arena") options.cpuArena = value == "on";
    else if (flag == "--mem-pattern") options.memoryPattern = value == "on";
    else if (flag == "--limit") options.detectorLimitSide = std::stoi(value);
    else if (flag == "--optimized-dir") options.optimizedModelsDirectory = value;
    else if (flag == "--classifier") options.useClassifier = value == "on";
    else if (flag == "--text") textPath = value;
  }

  std::vector<uint8_t> rgba;
  int width = 0, height = 0;
  if (!openOnly && !loadPage(argv[1], rgba, width, height)) {
    std::fprintf(stderr, "cannot read %s\n", argv[1]);
    return 2;
  }
  long pageKib = statusKib("VmHWM:");

  double cpu0 = cpuSeconds(), wall0 = wallSeconds();
  auto opened = OnnxTextReader::open(options);
  if (auto* error = std::get_if<ReaderError>(&opened)) {
    std::fprintf(stderr, "%s: %s\n", kindName(error->kind), error->message.c_str());
    return 1;
  }
  auto& reader = *std::get<std::unique_ptr<OnnxTextReader>>(opened);
  double openCpu = cpuSeconds() - cpu0, openWall = wallSeconds() - wall0;
  long openKib = statusKib("VmHWM:");
  int mostThreads = threads();
  const auto& times = reader.openTimes();
  std::printf("open_wall=%.3f open_cpu=%.3f runtime=%.3f env=%.3f det=%.3f rec=%.3f cls=%.3f hwm_open_mib=%.1f",
              openWall, openCpu, times.runtime, times.environment, times.detector, times.recognizer,
              times.classifier, openKib / 1024.0);
  if (openOnly) {
    std::printf(" threads=%d\n", mostThreads);
    return 0;
  }

  PageView page{rgba.data(), width, height, 4, size_t(width) * 4};
  double cpu1 = cpuSeconds();
  auto detected = reader.detectLines(page);
  double detectCpu = cpuSeconds() - cpu1;
  long detectKib = statusKib("VmHWM:");
  if (auto* error = std::get_if<ReaderError>(&detected)) {
    std::fprintf(stderr, "%s: %s\n", kindName(error->kind), error->message.c_str());
    return 1;
  }
  const auto& quads = std::get<std::vector<TextQuad>>(detected);
  mostThreads = std::max(mostThreads, threads());
  double cpu2 = cpuSeconds();
  std::ofstream text;
  if (!textPath.empty()) text.open(textPath);
  int characters = 0;
  for (const TextQuad& quad : quads) {
    auto read = reader.readLine(page, quad);
    if (auto* reading = std::get_if<LineReading>(&read)) {
      characters += int(reading->characterConfidences.size());
      if (text.is_open()) text << reading->text << '\n';
    }
  }
  double readCpu = cpuSeconds() - cpu2;
  mostThreads = std::max(mostThreads, threads());
  std::printf(" page=%dx%d hwm_page_load_mib=%.1f detect_cpu=%.3f hwm_detect_mib=%.1f read_cpu=%.3f lines=%zu chars=%d"
              " total_cpu=%.3f peak_rss_mib=%.1f threads=%d\n",
              width, height, pageKib / 1024.0, detectCpu, detectKib / 1024.0, readCpu, quads.size(), characters,
              cpuSeconds() - cpu0,
              statusKib("VmHWM:") / 1024.0, mostThreads);
  return 0;
}
