#include "recognition/ReadingPlan.h"

#include <algorithm>

namespace kvo::recognition {

std::string modelCodes(const std::vector<std::string>& tags) {
  auto lower = [](std::string s) {
    for (char& ch : s)
      if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
    return s;
  };
  auto startsWith = [](const std::string& s, const std::string& prefix) {
    return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0 &&
           (s.size() == prefix.size() || s[prefix.size()] == '-');
  };
  std::vector<std::string> codes;
  for (const auto& raw : tags) {
    const std::string tag = lower(raw);
    const char* code = nullptr;
    if (startsWith(tag, "zh-hans"))
      code = "chi_sim";
    else if (startsWith(tag, "zh-hant"))
      code = "chi_tra";
    else if (startsWith(tag, "en"))
      code = "eng";
    if (code != nullptr && std::find(codes.begin(), codes.end(), code) == codes.end()) codes.emplace_back(code);
  }
  if (codes.empty()) codes = {"chi_sim", "chi_tra", "eng"};
  return joinCodes(codes);
}

std::string joinCodes(const std::vector<std::string>& codes) {
  std::string joined;
  for (const auto& code : codes) {
    if (!joined.empty()) joined += '+';
    joined += code;
  }
  return joined;
}

std::vector<std::string> splitCodes(const std::string& joined) {
  std::vector<std::string> codes;
  size_t start = 0;
  while (start <= joined.size()) {
    const size_t end = std::min(joined.find('+', start), joined.size());
    if (end > start) codes.push_back(joined.substr(start, end - start));
    start = end + 1;
  }
  return codes;
}

ReadingPlan ReadingPlan::forModels(const std::string& joined) {
  ReadingPlan plan;
  plan.layout = joined;
  plan.withoutHan = joined;
  const std::vector<std::string> codes = splitCodes(joined);
  const auto sim = std::find(codes.begin(), codes.end(), "chi_sim");
  const auto tra = std::find(codes.begin(), codes.end(), "chi_tra");
  if (sim == codes.end() || tra == codes.end()) return plan;
  plan.first = sim < tra ? "chi_sim" : "chi_tra";
  plan.second = sim < tra ? "chi_tra" : "chi_sim";
  std::vector<std::string> withoutHan, latin;
  for (const auto& code : codes) {
    if (code != plan.second) withoutHan.push_back(code);
    if (code != plan.first && code != plan.second) latin.push_back(code);
  }
  plan.layout = plan.first;
  // On a page without Han the Latin models read first; the Chinese one
  // reads only the words they are unsure of.
  std::stable_partition(withoutHan.begin(), withoutHan.end(), [&](const std::string& code) { return code != plan.first; });
  plan.withoutHan = joinCodes(withoutHan);
  plan.latin = joinCodes(latin);
  return plan;
}

const std::string& ReadingPlan::pageModels(Script script) const {
  if (!choosesScript() || script == Script::noHan) return withoutHan;
  return script == Script::first ? first : second;
}

}  // namespace kvo::recognition
