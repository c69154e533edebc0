#include "recognition/LatinRuns.h"

#include <unicode/uchar.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <string>

#include "recognition/Characters.h"
#include "recognition/LineText.h"

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
  int han = 0;  // Han characters
  bool chinese = false;  // Han or fullwidth CJK punctuation
  bool latin = false;
  bool digit = false;  // an ASCII digit
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
    if (isHan(c)) ++makeUp.han;
    if (isChinese(c)) makeUp.chinese = true;
    if (c >= '0' && c <= '9') makeUp.digit = true;
    if (u_isalpha(c) && uscript_getScript(c, &status) == USCRIPT_LATIN) makeUp.latin = true;
  }
  return makeUp;
}

}  // namespace

bool rereadsLine(const ReadLine& line) {
  return line.placed && line.box.width() >= line.box.height() && line.box.height() >= kLeastRereadHeight;
}

std::vector<LatinRun> latinRuns(const std::vector<Word>& words, int lineThickness) {
  std::vector<WordMakeUp> makeUps;
  makeUps.reserve(words.size());
  for (const Word& word : words) makeUps.push_back(makeUpOf(word.text));
  // Whether the blank before word j (j may be the end) parts Chinese from
  // Chinese: the line's edge, a word with no Han nor CJK punctuation on
  // either side of it, or a blank the text writes as a space.
  auto apartBefore = [&](size_t j) {
    return j == 0 || j == words.size() || !makeUps[j - 1].chinese || !makeUps[j].chinese ||
           spacedHanBlank(words[j].gapBefore, lineThickness);
  };
  // Whether word j holds Latin letters or digits and no Han.
  auto latinLike = [&](size_t j) { return makeUps[j].han == 0 && (makeUps[j].latin || makeUps[j].digit); };
  auto besideLatin = [&](size_t i) {
    return (i > 0 && latinLike(i - 1)) || (i + 1 < words.size() && latinLike(i + 1));
  };
  std::vector<LatinRun> runs;
  for (size_t i = 0; i < words.size();) {
    const WordMakeUp& first = makeUps[i];
    if (first.han == 1 && !first.latin && apartBefore(i) && apartBefore(i + 1) && besideLatin(i)) {
      runs.push_back({i, i + 1, true});
      ++i;
      continue;
    }
    if (first.han > 0 || !first.latin) {
      ++i;
      continue;
    }
    size_t begin = i;
    const size_t previousEnd = runs.empty() ? 0 : runs.back().end;
    while (begin > previousEnd && makeUps[begin - 1].digit && !makeUps[begin - 1].chinese) --begin;
    size_t end = i + 1;
    while (end < words.size() && makeUps[end].han == 0) ++end;
    runs.push_back({begin, end});
    i = end;
  }
  return runs;
}

std::optional<Box> runRegion(const ReadLine& line, LatinRun run, int width, int height) {
  const Box& lb = line.box;
  const size_t i = run.begin, end = run.end;
  const int pad = linePadding(lb);
  // A run that starts or ends the line reaches the line's edge: a word's box
  // is where the recogniser placed its characters, which can fall short of
  // its ink, and no other word lies beyond it.
  int left = (i == 0 ? std::min(lb.left, line.boxes[i].left) : line.boxes[i].left) - pad;
  int right = (end == line.words.size() ? std::max(lb.right, line.boxes[end - 1].right) : line.boxes[end - 1].right) + pad;
  // Halfway to the words next to it, and never into their boxes: a word the
  // recogniser was unsure of can have a box reaching over its neighbours
  // (`type` over `是 10base2`), whose ink English would read as more Latin.
  if (i > 0) {
    const Box& previous = line.boxes[i - 1];
    left = std::max({left, (previous.right + line.boxes[i].left) / 2, previous.right});
  }
  if (end < line.words.size()) {
    const Box& next = line.boxes[end];
    right = std::min({right, (line.boxes[end - 1].right + next.left) / 2, next.left});
  }
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

namespace {

// Replaces words [begin, end) of `line` with the words [from, to) of `again`,
// which keep the first replaced word's blank before them; remeasures the
// blank after them.
void replaceWords(ReadLine& line, size_t begin, size_t end, ReadLine& again, size_t from, size_t to,
                  const InkBits* page) {
  again.words[from].gapBefore = line.words[begin].gapBefore;
  auto replace = [&](auto& into, auto& with) {
    into.erase(into.begin() + static_cast<std::ptrdiff_t>(begin), into.begin() + static_cast<std::ptrdiff_t>(end));
    into.insert(into.begin() + static_cast<std::ptrdiff_t>(begin), with.begin() + static_cast<std::ptrdiff_t>(from),
                with.begin() + static_cast<std::ptrdiff_t>(to));
  };
  replace(line.words, again.words);
  replace(line.boxes, again.boxes);
  replace(line.confidences, again.confidences);
  const size_t next = begin + (to - from);
  if (next < line.words.size())
    line.words[next].gapBefore = blankBetween(page, line.box, line.boxes[next - 1], line.boxes[next]);
}

int horizontalOverlap(const Box& a, const Box& b) { return std::min(a.right, b.right) - std::max(a.left, b.left); }

// The characters (code points) of words [begin, end).
size_t characters(const std::vector<Word>& words, size_t begin, size_t end) {
  size_t count = 0;
  for (size_t k = begin; k < end; ++k) count += codePointCount(words[k].text);
  return count;
}

// Whether words [from, to) of `again` read the ink of words [begin, end) of
// `line` clearly better: more confident by the margin, and accounting for
// at least half as many characters (a region cut short by a misplaced word
// box holds only a piece of the run, which a reading can be sure of).
bool clearlyBetter(const ReadLine& line, size_t begin, size_t end, const ReadLine& again, size_t from, size_t to) {
  return from < to && 2 * characters(again.words, from, to) >= characters(line.words, begin, end) &&
         meanConfidence(again.confidences, from, to) > meanConfidence(line.confidences, begin, end) + kLatinRereadMargin;
}

}  // namespace

bool replaceRun(ReadLine& line, LatinRun run, ReadLine again, const InkBits* page) {
  const size_t i = run.begin, end = run.end;
  if (run.loneHan && again.words.size() != 1) return false;
  if (clearlyBetter(line, i, end, again, 0, again.words.size())) {
    replaceWords(line, i, end, again, 0, again.words.size(), page);
    return true;
  }
  // Piece by piece: the new words and the old ones their boxes overlap
  // (the nearest old word for a new word that overlaps none) make pieces of
  // the line, and a piece's new words replace its old ones when they are
  // clearly better. A new word across two old ones joins them into one piece.
  struct Piece {
    size_t begin, end, from, to;  // old words [begin, end), new words [from, to)
  };
  std::vector<Piece> pieces;
  for (size_t j = 0; j < again.words.size(); ++j) {
    size_t first = end, last = i, nearest = i;
    for (size_t k = i; k < end; ++k) {
      const int overlap = horizontalOverlap(again.boxes[j], line.boxes[k]);
      if (overlap > 0) {
        first = std::min(first, k);
        last = std::max(last, k);
      }
      if (overlap > horizontalOverlap(again.boxes[j], line.boxes[nearest])) nearest = k;
    }
    if (first == end) first = last = nearest;
    if (!pieces.empty() && first < pieces.back().end) {
      pieces.back().end = std::max(pieces.back().end, last + 1);
      pieces.back().to = j + 1;
    } else {
      pieces.push_back({first, last + 1, j, j + 1});
    }
  }
  bool changed = false;
  // From the last piece to the first, so the earlier ones keep their indices.
  for (auto piece = pieces.rbegin(); piece != pieces.rend(); ++piece) {
    if (!clearlyBetter(line, piece->begin, piece->end, again, piece->from, piece->to)) continue;
    replaceWords(line, piece->begin, piece->end, again, piece->from, piece->to, page);
    changed = true;
  }
  return changed;
}

}  // namespace kvo::recognition
