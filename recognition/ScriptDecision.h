#pragma once

// Which of the two requested Chinese models reads a page, decided on the
// sample of its lines both read (recognition/ScriptSample); the reasons are
// in docs/recognition-languages.md.

#include <vector>

#include "recognition/ScriptSample.h"

namespace kvo::recognition {

// What the sample lines of a page showed: no Han, or Han best read by the
// first or the second Chinese model.
enum class Script { noHan, first, second };

// The decision on what the sample showed (both models' readings of the
// same lines with Han and the votes readSample counted on them): the sign of
// the votes' rank sum when they are settled; when they are not, the sign of
// the sum of the votes' evidence and that of `formLeans` (how much each
// glyph read in two forms looks more like the first model's form than the
// second's: formLeans() of the votes' form pairs) and, when that is 0 too,
// the rank sum's; then the doubt, then the first model.
Script decideScript(const SampleReading& sample, const std::vector<double>& formLeans = {});

}  // namespace kvo::recognition
