// Measures TesseractEngine on one image: seconds per page, peak resident
// memory and the number of threads the process ended up with.
//
//   ocr_page_bench [options] IMAGE
//
// IMAGE is anything Leptonica reads, or a binary PPM (*.ppm), which is read
// straight into the bitmap so the peak memory is the engine's own.
//
//     --repeat N         timed recognitions after the first one (default 3)
//     --langs A,B,...    BCP 47 tags (default zh-Hans,zh-Hant,en)
//     --ppi X            resolution handed to the engine (default 0: unknown)
//     --threads MODE     single (what the helper does) or library (OpenMP
//                        left alone, OMP_* environment honoured)
//     --no-correction    recognise without dictionaries
//     --rgba             hand the engine an rgba8 bitmap instead of rgb8
//     --text             print the recognised lines, one per line, on stdout
//
// Statistics go to stderr so that --text output can be piped.

#include <leptonica/allheaders.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "platform/TesseractEngine.h"

namespace {

int threadCount() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line))
    if (line.rfind("Threads:", 0) == 0) return std::atoi(line.c_str() + 8);
  return -1;
}

double peakRssMiB() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in KiB on Linux
}

double currentRssMiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

// Binary PPM (P6, maxval 255) straight into a Bitmap, so that measuring a
// large page does not first hold the decoder's copies of it.
kvo::Bitmap loadPpm(const char* path, bool rgba) {
  std::ifstream in(path, std::ios::binary);
  std::string magic;
  int64_t w = 0, h = 0;
  int maxval = 0;
  if (!(in >> magic >> w >> h >> maxval) || magic != "P6" || maxval != 255) return {};
  in.get();
  kvo::Bitmap bitmap = kvo::Bitmap::allocate(w, h, rgba ? kvo::PixelFormat::rgba8 : kvo::PixelFormat::rgb8);
  if (!bitmap.valid()) return {};
  std::vector<char> row(static_cast<size_t>(w) * 3);
  for (int64_t y = 0; y < h; ++y) {
    if (!in.read(row.data(), static_cast<std::streamsize>(row.size()))) return {};
    uint8_t* dst = bitmap.row(y);
    for (int64_t x = 0; x < w; ++x) {
      for (int c = 0; c < 3; ++c) *dst++ = static_cast<uint8_t>(row[static_cast<size_t>(x * 3 + c)]);
      if (rgba) *dst++ = 255;
    }
  }
  return bitmap;
}

kvo::Bitmap load(const char* path, bool rgba) {
  const std::string name = path;
  if (name.size() > 4 && name.compare(name.size() - 4, 4, ".ppm") == 0) return loadPpm(path, rgba);
  PIX* raw = pixRead(path);
  if (raw == nullptr) return {};
  PIX* pix = pixGetDepth(raw) == 32 ? pixClone(raw) : pixConvertTo32(raw);
  pixDestroy(&raw);
  if (pix == nullptr) return {};
  const int w = static_cast<int>(pixGetWidth(pix)), h = static_cast<int>(pixGetHeight(pix));
  const auto format = rgba ? kvo::PixelFormat::rgba8 : kvo::PixelFormat::rgb8;
  kvo::Bitmap bitmap = kvo::Bitmap::allocate(w, h, format);
  if (bitmap.valid()) {
    for (int y = 0; y < h; ++y) {
      uint8_t* dst = bitmap.row(y);
      const l_uint32* src = pixGetData(pix) + static_cast<size_t>(y) * pixGetWpl(pix);
      for (int x = 0; x < w; ++x) {
        l_int32 r, g, b;
        extractRGBValues(src[x], &r, &g, &b);
        *dst++ = static_cast<uint8_t>(r);
        *dst++ = static_cast<uint8_t>(g);
        *dst++ = static_cast<uint8_t>(b);
        if (rgba) *dst++ = 255;
      }
    }
  }
  pixDestroy(&pix);
  return bitmap;
}

std::vector<std::string> split(const std::string& s) {
  std::vector<std::string> parts;
  std::stringstream in(s);
  std::string part;
  while (std::getline(in, part, ',')) parts.push_back(part);
  return parts;
}

int usage() {
  std::fprintf(stderr,
               "usage: ocr_page_bench [--repeat N] [--langs A,B] [--ppi X] [--threads single|library]\n"
               "                      [--no-correction] [--rgba] [--text] IMAGE\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  int repeat = 3;
  double ppi = 0;
  bool printText = false, rgba = false;
  auto threading = kvo::TesseractEngine::Threading::singleThread;
  kvo::RecognitionRequest request;
  request.languages = {"zh-Hans", "zh-Hant", "en"};
  const char* path = nullptr;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--repeat" && hasValue) {
      repeat = std::atoi(argv[++i]);
    } else if (arg == "--langs" && hasValue) {
      request.languages = split(argv[++i]);
    } else if (arg == "--ppi" && hasValue) {
      ppi = std::atof(argv[++i]);
    } else if (arg == "--threads" && hasValue) {
      const std::string mode = argv[++i];
      if (mode == "library")
        threading = kvo::TesseractEngine::Threading::libraryDefault;
      else if (mode != "single")
        return usage();
    } else if (arg == "--no-correction") {
      request.usesLanguageCorrection = false;
    } else if (arg == "--rgba") {
      rgba = true;
    } else if (arg == "--text") {
      printText = true;
    } else if (!arg.empty() && arg[0] != '-' && path == nullptr) {
      path = argv[i];
    } else {
      return usage();
    }
  }
  if (path == nullptr || repeat < 0) return usage();

  kvo::Bitmap image = load(path, rgba);
  if (!image.valid()) {
    std::fprintf(stderr, "cannot read %s\n", path);
    return 1;
  }
  image.setPixelsPerInch(ppi);
  const double peakBeforeEngine = peakRssMiB();
  const double rssBeforeEngine = currentRssMiB();

  kvo::TesseractEngine engine(kvo::TesseractEngine::defaultTessdataDir(), threading);
  using Clock = std::chrono::steady_clock;
  auto seconds = [](Clock::duration d) { return std::chrono::duration<double>(d).count(); };

  auto start = Clock::now();
  auto result = engine.recognize(image, request);
  const double first = seconds(Clock::now() - start);
  if (!result) {
    std::fprintf(stderr, "recognition failed\n");
    return 1;
  }
  start = Clock::now();
  for (int i = 0; i < repeat; ++i) result = engine.recognize(image, request);
  const double perPage = repeat > 0 ? seconds(Clock::now() - start) / repeat : 0.0;

  if (printText) {
    for (const auto& o : *result)
      if (o.candidate) std::cout << o.candidate->text << '\n';
    std::cout.flush();
  }
  std::fprintf(stderr,
               "image %lldx%lld  lines %zu\n"
               "first call (loads models): %.3f s\n"
               "seconds per page (%d runs): %.3f s\n"
               "peak RSS: %.1f MiB (before the engine: %.1f MiB resident, %.1f MiB peak)\n"
               "threads: %d\n",
               static_cast<long long>(image.width()), static_cast<long long>(image.height()), result->size(), first,
               repeat, perPage, peakRssMiB(), rssBeforeEngine, peakBeforeEngine, threadCount());
  return 0;
}
