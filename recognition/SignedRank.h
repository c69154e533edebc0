#pragma once

// Wilcoxon's signed-rank statistics on paired differences (a model's
// confidence minus another's on the same glyph; a line's confidence turned
// minus standing): the differences ranked by their size, equal sizes sharing
// their mean rank, each rank signed as its difference. Under chance, each
// difference is as likely to fall either way whatever its size.

#include <cstddef>
#include <vector>

namespace kvo::recognition {

// The signed-rank sum: the ranks of the positive differences minus those of
// the negative ones. 0 when they balance.
double signedRankSum(const std::vector<double>& differences);

// True when the two-sided signed-rank test at the kSignificance level
// rejects chance: were each difference as likely to fall either way, a rank
// sum this far from 0 would come out in fewer than one case in twenty.
// Exact up to kExactSignedRankCount differences, the normal approximation
// (with a continuity correction) beyond. False without differences.
bool signedRankRejectsChance(const std::vector<double>& differences);
constexpr double kSignificance = 0.05;
constexpr size_t kExactSignedRankCount = 120;

// How far `differences` lean to the positive side, as a standard normal
// deviate: z with the chance above z equal to the chance that, under
// chance, the signed-rank sum of the positive ones would come out above the
// one observed, plus half the chance of exactly it (the mid-p, so that
// differences leaning neither way give 0). Exact up to
// kExactSignedRankCount differences, the normal approximation beyond;
// differences of 0 are left out, and none at all give 0. Deviates of
// independent evidence add up (Stouffer).
double signedRankDeviate(const std::vector<double>& differences);

}  // namespace kvo::recognition
