#include "recognition/ScriptDecision.h"

#include "recognition/SignedRank.h"

namespace kvo::recognition {

namespace {

// Own-form characters both readings need for the doubt to be measured on them alone.
constexpr int kEnoughOwnForms = 8;

}  // namespace

Script decideScript(const SampleReading& sample, const std::vector<double>& formLeans) {
  const HanReading& first = sample.first;
  const HanReading& second = sample.second;
  if (second.han.count == 0) return Script::first;
  // Votes that did not settle are as much chance as script; the glyphs
  // themselves then say which forms they are in, when they can. Each kind
  // of evidence counts as far as it is unlikely under chance, on one scale
  // (Stouffer's sum of the two deviates): one glyph leaning one way does
  // not outweigh dozens of votes leaning the other, nor a few near-tie
  // votes a dozen glyphs.
  if (!settled(sample.votes)) {
    const double weighed = signedRankDeviate(sample.votes.margins) + signedRankDeviate(formLeans);
    if (weighed != 0) return weighed > 0 ? Script::first : Script::second;
  }
  if (const double sum = sample.votes.rankSum(); sum != 0) return sum > 0 ? Script::first : Script::second;
  // Both models are nearly sure of most characters; what tells them apart
  // is how much doubt each has left, on the characters each wrote in its
  // own script's forms when there are enough of them.
  const bool ownForms = first.ownForms.count >= kEnoughOwnForms && second.ownForms.count >= kEnoughOwnForms;
  const double firstDoubt = ownForms ? first.ownForms.doubt() : first.han.doubt();
  const double secondDoubt = ownForms ? second.ownForms.doubt() : second.han.doubt();
  // The model with less doubt wins, with no margin: any margin favours one
  // script over the other, and a page judged in the wrong script is
  // rewritten into it. Only a tie goes to the first model requested.
  return secondDoubt < firstDoubt ? Script::second : Script::first;
}

}  // namespace kvo::recognition
