#pragma once

#include <cstdint>
#include <vector>

#include "recognition/LineGeometry.h"

namespace kvo::recognition {

// Text the page's layout analysis left out. Tesseract's layout analysis
// now and then drops lines outright: a stack of short lines of thick glyphs
// taken for a picture, a column of the same word ("Ogg" five times at the
// start of five lines) taken for something other than text. What it
// dropped is still on the page as ink that no line read covers, in pieces
// of the size of the page's glyphs; such pieces are what a second reading
// of the rest of the page looks for, and what its lines must hold to be
// kept (a stray mark, a rule or a frame is not glyph-sized, and a reading
// that holds none of the pieces reads something else). A picture's texture
// can be glyph-sized: such a page is read again for nothing, and what the
// second reading makes of the picture is kept where it holds its pieces.

// The boxes of the glyph-sized stretches of ink (8-connected) of `page`
// that lie outside every one of `lines` (the boxes of the lines read,
// each with linePadding around it): a stretch counts as outside when its
// middle is. Glyph-sized: at least half and at most one and a half times
// as tall as the page's typical line is thick (the median over `lines`),
// and at most kMostGlyphsInAStretch times as wide. Empty without lines, since
// then there is no glyph size to go by.
std::vector<Box> unreadGlyphs(const InkBits& page, const std::vector<Box>& lines);

// The typical thickness of `lines` (not empty): the median of their
// thicknesses, the upper one of an even count.
int medianThickness(const std::vector<Box>& lines);
constexpr int kMostGlyphsInAStretch = 8;

// A copy of `grey` (width × height, dark ink on a light ground) with each
// of `lines`, its linePadding around it, painted white: the rest of the
// page, to be read again. False when the memory cannot be had.
bool blankLines(const GreyImage& grey, const std::vector<Box>& lines, GreyImage& rest);

// True when `line` (a line of the second reading) holds the middle of one of `glyphs`.
bool holdsUnreadGlyph(const Box& line, const std::vector<Box>& glyphs);

// How much of a page (read with its lines running across) a reading left
// unread, measured on the page's own ink
// found apart from the reading (a local binarisation, which light falling
// off across a sheet does not fool): the summed width of the glyph-sized
// stretches of it outside every line the reading holds text on
// (unreadGlyphs), set against the width of the reading's typical line.
struct UnreadWidth {
  int64_t unread = 0;  // pixels, summed over the stretches
  int typicalLine = 0;  // the median width of the reading's lines
};
UnreadWidth unreadWidth(const InkBits& page, const std::vector<Box>& lines);

// Whether a reading that left `first` unread is worth reading another way:
// it left glyphs unread over at least half a typical line's width, as a
// reading does whose binarisation took the end of a line for ground (its
// lines are measured as read, so cut lines make the typical one shorter).
// Stray marks and specks are not glyph-sized and do not count.
bool leavesALineUnread(const UnreadWidth& first);

// Whether the reading that left `second` unread is kept instead of the one
// that left `first`: it leaves clearly less of the page unread, at most half
// of it. Both are measured on the same ink, so neither is favoured by its
// own binarisation; near-equal readings keep the first.
bool readsClearlyMore(const UnreadWidth& second, const UnreadWidth& first);

}  // namespace kvo::recognition
