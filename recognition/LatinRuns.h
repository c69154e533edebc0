#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "recognition/ReadLine.h"

namespace kvo::recognition {

// The second reading of Latin text on a Chinese page
// (docs/recognition-languages.md): a page read with a Chinese model alone has each run
// of words with Latin letters and no Han read again with the Latin models,
// and the new reading replaces the old where it is clearly more confident.

// Words [begin, end) of a line: one with Latin letters and no Han, the
// words without Han after it, and the words with digits but nothing Chinese
// (Han or CJK punctuation) just before it: a Chinese model reads `-h,`
// before `--human-readable` as `-]1,`. Punctuation alone before a run is
// left to the Chinese reading: beside Han it is as likely the Chinese
// text's own (an ASCII comma for a full-width one, a bracket closing).
// Han stands between two runs.
//
// A word of one Han character standing apart beside Latin is a run of its
// own: Chinese sets its characters solid, so one with, on each side, the
// line's edge, a word with no Han nor CJK punctuation, or a blank the text
// writes as a space, and Latin letters or digits in a word next to it, is
// as likely Latin a Chinese model took for Han (`it.` read as 让, `-H,` as
// 有) as a character. Letter-spaced Chinese (a heading, a spaced-out line)
// has no Latin beside its characters and is left to the Chinese reading:
// read alone, its characters are often unsure, and English readings of
// simple ones (十 as `+`) would replace them.
struct LatinRun {
  size_t begin = 0, end = 0;
  // A lone Han character's run: English replaces it only with one word.
  bool loneHan = false;
};

// Whether a line's runs are read again: placed, horizontal and tall enough.
bool rereadsLine(const ReadLine& line);

// The runs of a line whose horizontal text is `lineThickness` pixels high,
// left to right.
std::vector<LatinRun> latinRuns(const std::vector<Word>& words, int lineThickness);

// The region a run is read again from: the whole height of the line with
// some blank around it but none of the words next to it, clipped to the
// page; nullopt when that is too small to read.
std::optional<Box> runRegion(const ReadLine& line, LatinRun run, int pageWidth, int pageHeight);

// The words of the lines read in a run's region as one line, the blanks
// between the lines' words measured along `lineBox` on `page`.
ReadLine joinParts(std::vector<ReadLine> parts, const Box& lineBox, const InkBits* page);

// Replaces the run's words with `again` when its mean confidence is higher
// by more than the re-read margin; remeasures the blank after it. Replacing
// the runs from the last to the first keeps the others' indices valid.
// Returns whether it did. A lone Han character is replaced only by a
// reading of one word: Latin a Chinese model takes for one character is one
// short token (`it.`, `-H,`), and a reading of several words is English
// making what it can of a character it cannot read (`是"-",` as `SS Lene 9`).
bool replaceRun(ReadLine& line, LatinRun run, ReadLine again, const InkBits* page);

// The mean of word confidences, 0 for none.
double meanConfidence(const std::vector<float>& confidences, size_t begin, size_t end);

}  // namespace kvo::recognition
