// Measures StandardImageCodec::writePng on a 1700×2200 rgb8 page (letter
// size at 200 dpi): a synthetic printed-text page (white paper, lines of
// anti-aliased glyph strokes) and a page of noise (the incompressible worst
// case), plus the text page as scanned (shaded paper, sensor noise). Prints the median milliseconds per encode and the file size for the
// codec's default encoding and for a sweep of zlib levels, PNG filters and
// the run-length strategy.
//
//   png_write_bench [--full] [--repeat N]
//
// --full sweeps the noisy page as well (slow); by default it gets only the
// default encoding and a few alternatives.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/StandardImageCodec.h"

namespace {

constexpr int64_t kWidth = 1700;
constexpr int64_t kHeight = 2200;

// Small deterministic generator so every run measures the same pixels.
struct Lcg {
  uint64_t state;
  uint32_t next() {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<uint32_t>(state >> 33);
  }
  int below(int n) { return static_cast<int>(next() % static_cast<uint32_t>(n)); }
};

void fillRect(kvo::Bitmap& page, int64_t x0, int64_t y0, int64_t w, int64_t h, uint8_t value) {
  for (int64_t y = std::max<int64_t>(0, y0); y < std::min(kHeight, y0 + h); ++y)
    for (int64_t x = std::max<int64_t>(0, x0); x < std::min(kWidth, x0 + w); ++x) {
      uint8_t* p = page.row(y) + x * 3;
      // Ink darkens: overlapping strokes keep the darker value.
      for (int c = 0; c < 3; ++c) p[c] = std::min(p[c], value);
    }
}

// A glyph is two or three strokes (stems, bars, dots) with a one-pixel grey
// fringe, roughly the ink of 11 pt text at 200 dpi.
void drawGlyph(kvo::Bitmap& page, Lcg& rng, int64_t x, int64_t baseline) {
  const int strokes = 2 + rng.below(2);
  for (int s = 0; s < strokes; ++s) {
    const bool vertical = rng.below(3) != 0;
    const int64_t len = vertical ? 12 + rng.below(12) : 6 + rng.below(6);
    const int64_t sx = x + rng.below(8), sy = baseline - (vertical ? len : 2 + rng.below(14));
    const int64_t w = vertical ? 3 : len, h = vertical ? len : 3;
    fillRect(page, sx - 1, sy - 1, w + 2, h + 2, static_cast<uint8_t>(150 + rng.below(80)));
    fillRect(page, sx, sy, w, h, static_cast<uint8_t>(rng.below(40)));
  }
}

kvo::Bitmap textPage() {
  kvo::Bitmap page = kvo::Bitmap::allocate(kWidth, kHeight, kvo::PixelFormat::rgb8);
  std::memset(page.data(), 255, page.stride() * static_cast<size_t>(kHeight));
  Lcg rng{42};
  for (int64_t baseline = 220; baseline < kHeight - 200; baseline += 44) {
    if (rng.below(12) == 0) continue;  // paragraph break
    int64_t x = 200;
    const int64_t lineEnd = kWidth - 200 - rng.below(rng.below(5) == 0 ? 800 : 40);
    while (x < lineEnd) {
      const int letters = 2 + rng.below(8);
      for (int i = 0; i < letters && x < lineEnd; ++i, x += 17) drawGlyph(page, rng, x, baseline);
      x += 14;  // word space
    }
  }
  return page;
}

// The text page as a scanner or camera delivers it: grey, unevenly lit paper
// and a few levels of sensor noise on every sample.
kvo::Bitmap scannedPage() {
  kvo::Bitmap page = textPage();
  Lcg rng{99};
  for (int64_t y = 0; y < kHeight; ++y) {
    uint8_t* p = page.row(y);
    for (int64_t x = 0; x < kWidth; ++x)
      for (int c = 0; c < 3; ++c, ++p) {
        const int shade = static_cast<int>(20 * (x + y) / (kWidth + kHeight));
        const int v = *p * 9 / 10 + 8 - shade + rng.below(7) - 3;
        *p = static_cast<uint8_t>(std::clamp(v, 0, 255));
      }
  }
  return page;
}

kvo::Bitmap noisyPage() {
  kvo::Bitmap page = kvo::Bitmap::allocate(kWidth, kHeight, kvo::PixelFormat::rgb8);
  Lcg rng{7};
  uint8_t* p = page.data();
  for (size_t i = 0, n = page.stride() * static_cast<size_t>(kHeight); i < n; ++i) p[i] = static_cast<uint8_t>(rng.next());
  return page;
}

const char* filterName(kvo::PngFilter f) {
  switch (f) {
    case kvo::PngFilter::none: return "none";
    case kvo::PngFilter::sub: return "sub";
    case kvo::PngFilter::up: return "up";
    case kvo::PngFilter::average: return "average";
    case kvo::PngFilter::paeth: return "paeth";
    case kvo::PngFilter::adaptive: return "adaptive";
  }
  return "?";
}

void measure(const char* pageName, const kvo::Bitmap& page, const kvo::PngEncoding& encoding, const char* note,
             int repeat, const std::string& path) {
  kvo::StandardImageCodec codec(encoding);
  std::vector<double> ms;
  for (int i = 0; i < repeat; ++i) {
    const auto start = std::chrono::steady_clock::now();
    if (codec.writePng(page, path) != kvo::PngWriteResult::written) {
      std::fprintf(stderr, "writePng failed for %s\n", path.c_str());
      std::exit(1);
    }
    ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(ms.begin(), ms.end());
  struct stat st {};
  stat(path.c_str(), &st);
  std::printf("%-5s level %d  filter %-8s  %-7s  %8.1f ms  %10lld bytes%s\n", pageName, encoding.zlibLevel,
              filterName(encoding.filter), encoding.runLengthOnly ? "rle" : "default", ms[ms.size() / 2],
              static_cast<long long>(st.st_size), note);
  std::fflush(stdout);
}

void sweep(const char* pageName, const kvo::Bitmap& page, int repeat, const std::string& path) {
  for (int level : {1, 2, 3, 6})
    for (auto filter : {kvo::PngFilter::none, kvo::PngFilter::sub, kvo::PngFilter::up, kvo::PngFilter::paeth,
                        kvo::PngFilter::adaptive})
      for (bool rle : {false, true}) measure(pageName, page, kvo::PngEncoding{level, filter, rle}, "", repeat, path);
}

}  // namespace

int main(int argc, char** argv) {
  bool full = false;
  int repeat = 5;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--full") == 0) {
      full = true;
    } else if (std::strcmp(argv[i], "--repeat") == 0 && i + 1 < argc) {
      repeat = std::max(1, std::atoi(argv[++i]));
    } else {
      std::fprintf(stderr, "usage: %s [--full] [--repeat N]\n", argv[0]);
      return 2;
    }
  }
  char dir[] = "/tmp/png-write-bench-XXXXXX";
  if (mkdtemp(dir) == nullptr) return 1;
  const std::string path = std::string(dir) + "/page.png";

  const kvo::Bitmap text = textPage(), scanned = scannedPage(), noise = noisyPage();
  std::printf("1700x2200 rgb8, median of %d encodes\n", repeat);
  measure("text", text, kvo::PngEncoding{}, "  <- default", repeat, path);
  measure("scan", scanned, kvo::PngEncoding{}, "  <- default", repeat, path);
  measure("noisy", noise, kvo::PngEncoding{}, "  <- default", repeat, path);
  std::printf("\n");
  sweep("text", text, repeat, path);
  std::printf("\n");
  sweep("scan", scanned, repeat, path);
  std::printf("\n");
  if (full) {
    sweep("noisy", noise, repeat, path);
  } else {
    for (auto filter : {kvo::PngFilter::none, kvo::PngFilter::up, kvo::PngFilter::paeth})
      measure("noisy", noise, kvo::PngEncoding{1, filter, false}, "", repeat, path);
    measure("noisy", noise, kvo::PngEncoding{1, kvo::PngFilter::up, true}, "", repeat, path);
  }
  unlink(path.c_str());
  rmdir(dir);
  return 0;
}
