#pragma once

#include <string>
#include <vector>

#include "recognition/ScriptDecision.h"

namespace kvo::recognition {

// Which models read what; the measurements behind it are in
// docs/recognition-languages.md.

// The model codes for a request's BCP 47 tags, joined by '+'
// ("chi_sim+chi_tra+eng"): "zh-Hans" → chi_sim, "zh-Hant" → chi_tra, "en" →
// eng, region subtags allowed, case ignored, duplicates removed, order
// kept; with no supported tag at all, every model.
std::string modelCodes(const std::vector<std::string>& tags);

// "chi_sim+eng" ↔ {"chi_sim", "eng"}.
std::string joinCodes(const std::vector<std::string>& codes);
std::vector<std::string> splitCodes(const std::string& joined);

// How a page is read with a set of models. `first` and `second` are the two
// Chinese models in request order when both are requested, and empty
// otherwise. `layout` finds the page's layout and reads the sample lines the
// first model reads: `first` alone when both Chinese models are requested
// (it reads a Chinese page in that script anyway, so one loaded model serves
// all three), all requested models otherwise. `withoutHan` reads a page
// whose sample showed no Han: all requested models but `second`, the Latin
// ones first. `first` stays in it although it costs a second load of that
// model (about a fifth of an English page's time): the sample reads only
// some lines, and a name or a place written in Han on the others would come
// out as Latin garbage without it. `latin` re-reads the Latin runs of a
// Chinese page: the requested models but the Chinese ones.
struct ReadingPlan {
  std::string first, second, layout, withoutHan, latin;
  // For the joined model codes of a request.
  static ReadingPlan forModels(const std::string& joined);
  bool choosesScript() const { return !second.empty(); }
  // The models that read a page whose sample showed `script`; `withoutHan`
  // when the plan does not choose.
  const std::string& pageModels(Script script) const;
};

}  // namespace kvo::recognition
