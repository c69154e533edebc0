#pragma once

#include <string>
#include <vector>

#include "interfaces/ReadText.h"

namespace kvo::recognition {

using kvo::Word;

// Joins the words of one line into the line's text (spacing and full-width
// punctuation; docs/recognition-languages.md). A space stands between
// two words unless the boundary is a CJK one and the blank there is narrow
// for the line's thickness (`lineThickness`: the height of a horizontal
// line); an ASCII , : ; ? ! ( ) read next to Han becomes its full-width form
// where the blank around it is that of a full-width cell, and no space is
// written next to such a mark. Latin words always keep their spaces, and
// punctuation among Latin letters and digits is never widened.
std::string joinLineWords(const std::vector<Word>& words, int lineThickness);

// Whether a blank of `gap` pixels between two Han characters is written as
// a space: more than half the line's thickness. Chinese sets its characters
// solid, so a wider blank is one the text itself holds.
bool spacedHanBlank(int gap, int lineThickness);

}  // namespace kvo::recognition
