#pragma once

#include <functional>
#include <vector>

#include <unicode/umachine.h>

#include "recognition/LineGeometry.h"

#include "interfaces/PageImage.h"

namespace kvo::recognition {

// Which of a character's two forms the ink on the page shows, for the
// script decision (recognition/ScriptDecision; measurements in
// docs/recognition-languages.md). Where the two Chinese models read the
// same glyph in their own scripts' forms (说 and 說), each is nearly sure of
// its own, so their confidences say little; the glyph itself says which:
// it is drawn once in each form, in reference typefaces, and the ink
// around it is compared with both drawings. The search, the blur and the
// comparison treat both forms alike, so neither script is favoured; what
// makes a glyph hard to see (size, blur, a typeface unlike the references)
// blurs the difference for both.

using kvo::Plane;

// `plane` blurred with a Gaussian of standard deviation `sigma` pixels
// (separable, edges clamped); the plane itself when sigma is not positive.
Plane blurred(const Plane& plane, double sigma);

// How like `form` the ink is at its best placement: the highest Pearson
// correlation (-1..1) of `form` with a window of `ink` as large, over every
// placement `step` pixels apart whose window lies within `ink`. -1 when no
// window fits or either holds no contrast.
double likeness(const Plane& ink, const Plane& form, int step);

// One glyph both models read, in the first model's form and the second's,
// with the boxes each placed it in and the box of the line the layout
// analysis found it on (page pixels). The boxes the recogniser gives single
// characters can be off by half a character and are often as tall as the
// region read; the line's box is the layout's, drawn round its ink.
struct FormPair {
  UChar32 first = 0, second = 0;
  Box firstBox, secondBox;
  Box line;
};

// The drawings of character `c` in each reference typeface, in the faces
// for its script (`traditional`), em pixels square, baseline kEmBaseline of
// the em down: one per typeface, in the same order whatever the character,
// an empty plane where a typeface lacks `c`. Ems from kLeastEm to kMostEm
// pixels are drawn; below, a glyph has too few pixels to tell its forms
// apart, and no drawing is made.
using FormDrawer = std::function<std::vector<Plane>(UChar32 c, bool traditional, int em)>;
constexpr int kLeastEm = 4;
constexpr int kMostEm = 512;
constexpr double kEmBaseline = 0.88;

// How much more each glyph of `pairs` looks like the form of the first
// model's script than the second's (`firstTraditional` says which script
// that is), on the grey `page` (width × height): for each pair compared, in
// order, the sum over the typefaces that draw both forms of the difference
// of the two likenesses, positive for the first model's form, negative for
// the second's. A pair no typeface could compare (a glyph blurred into a
// block, a character the typefaces lack) has none; none at all when no
// glyph could be measured. Each pair is one glyph of the page, so the
// leans are independent evidence, weighed like votes
// (recognition/ScriptDecision: evidence). The em is the median
// height of the glyphs' ink (on their lines, about where the boxes put
// them) over kInkPerEm (a Han glyph's ink fills about that much of its
// em); the glyph is searched for up to half an em
// from the middle of the line across and from the middle of its boxes
// along it, in steps of a sixteenth of an em, and ink and drawings are
// blurred by a sixteenth of one, so that strokes of a typeface unlike the
// references still overlap theirs. Ink is the smaller side of the level
// that separates the grey levels around each glyph best.
std::vector<double> formLeans(const uint8_t* page, int width, int height, const std::vector<FormPair>& pairs,
                              bool firstTraditional, const FormDrawer& draw);
constexpr double kInkPerEm = 0.9;

}  // namespace kvo::recognition
