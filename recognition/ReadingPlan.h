#pragma once

#include <string>
#include <vector>

namespace kvo::recognition {

// Which models read what (README, "Recognition languages").

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
// otherwise. `layout` reads the page's layout in any case, and the page when
// it has no Han: all requested models but `second`. `latin` re-reads the
// Latin runs of a Chinese page: the requested models but the Chinese ones.
struct ReadingPlan {
  std::string first, second, layout, latin;
  // For the joined model codes of a request.
  static ReadingPlan forModels(const std::string& joined);
  bool choosesScript() const { return !second.empty(); }
};

}  // namespace kvo::recognition
