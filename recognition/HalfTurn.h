#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "interfaces/TextRecognitionEngine.h"
#include "recognition/LineGeometry.h"

namespace kvo::recognition {

// Whether a page read as it stands is upside down (a sheet fed or
// photographed the wrong way up). Nothing in a page's layout tells: its
// lines run across either way. The engine's reading of it does: read upside
// down, lines come out as garbage the engine is unsure of. So a page whose
// reading is doubtful has lines read again, each as it stands and turned
// half, and is taken to be upside down when the turned readings are surer
// than chance would make them (the signed-rank test the script choice uses:
// recognition/ScriptDecision, settled). Reading the lines both ways, not
// comparing one reading with a fixed level, is what decides: a page of
// faint or odd print read doubtfully the right way up reads no surer
// turned, and is left as it is.

// Whether a page's reading, `observations`, is doubtful enough to be
// checked: the median confidence of its lines with text is below
// kDoubtfulConfidence. This only decides whether the check is paid for (a
// dozen single lines read twice); pages read the right way up measure 0.75
// to 0.93 there on the condition bench, pages upside down 0.00 to 0.59
// (docs/page-orientation.md). None with text: not doubtful (nothing to read).
bool doubtfulReading(const std::vector<TextObservation>& observations);
constexpr float kDoubtfulConfidence = 0.7f;

// The boxes, in pixels of a width × height page, of the observations with
// text: each the smallest box holding its four corners.
std::vector<Box> boxesWithText(const std::vector<TextObservation>& observations, int width, int height);

// How sure the engine is of its reading of one line, as it stands or turned
// half (0..100); negative when it cannot be read.
using LineConfidence = std::function<int(const Box& line, bool turned)>;

// True when the page whose lines are `lines` reads upside down: its
// sampleable lines (recognition/ScriptDecision: isSampleLine, in
// sampleOrder) are read both ways, at most kMostHalfTurnLines of them, until
// the differences (turned minus standing) are settled; upside down when
// they are, and lean to the turned side. Fewer than six lines can never
// settle a two-sided test at 5 %, so a page with fewer is left as it stands.
bool readsUpsideDown(const std::vector<Box>& lines, const LineConfidence& confidence);
constexpr size_t kMostHalfTurnLines = 12;

}  // namespace kvo::recognition
