#include "recognition/LatinRuns.h"

#include <unicode/uchar.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <string>

#include "recognition/Characters.h"

namespace kvo::recognition {

namespace {

// The English reading must beat the Chinese model's mean confidence (0..100)
// by more than this: lower margins swapped in worse readings as often as better.
constexpr double kLatinRereadMargin = 20;
// Lines lower than this are not read again, nor runs narrower or lower (pixels).
constexpr int kLeastRereadHeight = 4;
constexpr int kLeastRunRegionSide = 4;

// What a word read by a Chinese model is made of.
struct WordMakeUp {
  bool han = false;
  bool latin = false;
};

WordMakeUp makeUpOf(const std::string& word) {
  WordMakeUp makeUp;
  int32_t i = 0;
  const auto length = static_cast<int32_t>(word.size());
  while (i < length) {
    UChar32 c = 0;
    U8_NEXT(word.data(), i, length, c);
    if (c < 0) continue;
    UErrorCode status = U_ZERO_ERROR;
    if (isHan(c)) makeUp.han = true;
    if (u_isalpha(c) && uscript_getScript(c, &status) == USCRIPT_LATIN) makeUp.latin = true;
  }
  return makeUp;
}

}  // namespace

bool rereadsLine(const ReadLine& line) {
  return line.placed && line.box.width() >= line.box.height() && line.box.height() >= kLeastRereadHeight;
}

std::vector<LatinRun> latinRuns(const std::vector<Word>& words) {
  std::vector<LatinRun> runs;
  for (size_t i = 0; i < words.size();) {
    const WordMakeUp first = makeUpOf(words[i].text);
    if (first.han || !first.latin) {
      ++i;
      continue;
    }
    size_t end = i + 1;
    while (end < words.size() && !makeUpOf(words[end].text).han) ++end;
    runs.push_back({i, end});
    i = end;
  }
  return runs;
}

std::optional<Box> runRegion(const ReadLine& line, LatinRun run, int width, int height) {
  const Box& lb = line.box;
  const size_t i = run.begin, end = run.end;
  const int pad = linePadding(lb);
  int left = line.boxes[i].left - pad, right = line.boxes[end - 1].right + pad;
  if (i > 0) left = std::max(left, (line.boxes[i - 1].right + line.boxes[i].left) / 2);
  if (end < line.words.size()) right = std::min(right, (line.boxes[end - 1].right + line.boxes[end].left) / 2);
  left = std::max(left, 0);
  right = std::min(right, width);
  const int top = std::max(lb.top - pad, 0), bottom = std::min(lb.bottom + pad, height);
  if (right - left < kLeastRunRegionSide || bottom - top < kLeastRunRegionSide) return std::nullopt;
  return Box{left, top, right, bottom};
}

ReadLine joinParts(std::vector<ReadLine> parts, const Box& lineBox, const InkBits* page) {
  ReadLine again;
  for (ReadLine& part : parts)
    for (size_t k = 0; k < part.words.size(); ++k) {
      if (k == 0 && !again.boxes.empty()) part.words[k].gapBefore = blankBetween(page, lineBox, again.boxes.back(), part.boxes[k]);
      again.words.push_back(std::move(part.words[k]));
      again.boxes.push_back(part.boxes[k]);
      again.confidences.push_back(part.confidences[k]);
    }
  return again;
}

double meanConfidence(const std::vector<float>& confidences, size_t begin, size_t end) {
  double sum = 0;
  for (size_t k = begin; k < end; ++k) sum += confidences[k];
  return begin == end ? 0.0 : sum / static_cast<double>(end - begin);
}

bool replaceRun(ReadLine& line, LatinRun run, ReadLine again, const InkBits* page) {
  const size_t i = run.begin, end = run.end;
  if (again.words.empty() || meanConfidence(again.confidences, 0, again.confidences.size()) <=
                                 meanConfidence(line.confidences, i, end) + kLatinRereadMargin)
    return false;
  again.words.front().gapBefore = line.words[i].gapBefore;
  auto replace = [&](auto& into, auto& with) {
    into.erase(into.begin() + static_cast<std::ptrdiff_t>(i), into.begin() + static_cast<std::ptrdiff_t>(end));
    into.insert(into.begin() + static_cast<std::ptrdiff_t>(i), with.begin(), with.end());
  };
  replace(line.words, again.words);
  replace(line.boxes, again.boxes);
  replace(line.confidences, again.confidences);
  const size_t next = i + again.words.size();
  if (next < line.words.size())
    line.words[next].gapBefore = blankBetween(page, line.box, line.boxes[next - 1], line.boxes[next]);
  return true;
}

}  // namespace kvo::recognition
