#include "recognition/SignedRank.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>

namespace kvo::recognition {

namespace {

// The differences' ranks by size, doubled, in the order of `margins`: whole numbers, since
// a run of equal sizes from rank i to rank j shares the rank (i + j) / 2.
std::vector<int> doubledRanks(const std::vector<double>& margins) {
  const size_t n = margins.size();
  std::vector<size_t> order(n);
  for (size_t i = 0; i < n; ++i) order[i] = i;
  std::sort(order.begin(), order.end(),
            [&](size_t a, size_t b) { return std::fabs(margins[a]) < std::fabs(margins[b]); });
  std::vector<int> ranks(n);
  for (size_t i = 0; i < n;) {
    size_t j = i;
    while (j + 1 < n && std::fabs(margins[order[j + 1]]) == std::fabs(margins[order[i]])) ++j;
    for (size_t k = i; k <= j; ++k) ranks[order[k]] = static_cast<int>(i + j + 2);  // 2 × mean of ranks i+1..j+1
    i = j + 1;
  }
  return ranks;
}

// Under chance, each of `ranks` (doubled) counted for either side with
// probability 1/2: the chance of every doubled sum of those counted for one
// side, 0 up to the sum of them all.
std::vector<double> chanceOfSums(const std::vector<int>& ranks) {
  int64_t total = 0;
  for (const int rank : ranks) total += rank;
  std::vector<double> chance(static_cast<size_t>(total) + 1, 0.0);
  chance[0] = 1;
  int64_t reach = 0;
  for (const int rank : ranks) {
    for (int64_t s = reach; s >= 0; --s) {
      chance[static_cast<size_t>(s + rank)] += chance[static_cast<size_t>(s)] / 2;
      chance[static_cast<size_t>(s)] /= 2;
    }
    reach += rank;
  }
  return chance;
}

// The standard normal deviate with `p` of the distribution above it.
double deviateAbove(double p) {
  // The upper tail 0.5 erfc(z / sqrt 2) falls steadily with z: bisection,
  // to double precision well within a hundred halvings.
  double low = -40, high = 40;
  for (int i = 0; i < 100; ++i) {
    const double mid = (low + high) / 2;
    if (0.5 * std::erfc(mid / std::sqrt(2.0)) > p)
      low = mid;
    else
      high = mid;
  }
  return (low + high) / 2;
}

}  // namespace

double signedRankSum(const std::vector<double>& margins) {
  const std::vector<int> ranks = doubledRanks(margins);
  double sum = 0;
  for (size_t i = 0; i < margins.size(); ++i) sum += margins[i] > 0 ? ranks[i] : -ranks[i];
  return sum / 2;
}

bool signedRankRejectsChance(const std::vector<double>& margins) {
  const size_t n = margins.size();
  if (n == 0) return false;
  const std::vector<int> ranks = doubledRanks(margins);
  // The doubled rank sum of the votes for the less favoured model.
  int64_t total = 0, smaller = 0;
  for (size_t i = 0; i < n; ++i) {
    total += ranks[i];
    if (margins[i] < 0) smaller += ranks[i];
  }
  smaller = std::min(smaller, total - smaller);
  double p = 0;
  if (n <= kExactSignedRankCount) {
    const std::vector<double> chance = chanceOfSums(ranks);
    for (int64_t s = 0; s <= smaller; ++s) p += chance[static_cast<size_t>(s)];
    p *= 2;
  } else {
    // Mean total / 4 and variance (sum of squared ranks) / 4 of the
    // undoubled sum, with a continuity correction of half a rank.
    double squares = 0;
    for (const int rank : ranks) squares += static_cast<double>(rank) * rank / 4;
    const double z = (total / 4.0 - smaller / 2.0 - 0.5) / std::sqrt(squares / 4);
    p = std::erfc(z / std::sqrt(2.0));
  }
  return p < kSignificance;
}

double signedRankDeviate(const std::vector<double>& differences) {
  std::vector<double> signedValues;
  std::copy_if(differences.begin(), differences.end(), std::back_inserter(signedValues),
               [](double d) { return d != 0; });
  if (signedValues.empty()) return 0;
  const std::vector<int> ranks = doubledRanks(signedValues);
  int64_t positive = 0, total = 0;
  double squares = 0;
  for (size_t i = 0; i < ranks.size(); ++i) {
    if (signedValues[i] > 0) positive += ranks[i];
    total += ranks[i];
    squares += static_cast<double>(ranks[i]) * ranks[i];
  }
  // Exactly as much either way: the middle of the distribution.
  if (2 * positive == total) return 0;
  if (signedValues.size() > kExactSignedRankCount) {
    // The normal approximation: the doubled sum of the positive ones has
    // mean total / 2 and variance (sum of squared doubled ranks) / 4.
    return (positive - total / 2.0) / std::sqrt(squares / 4);
  }
  // The mid-p: the chance of a sum above the one observed, and half the
  // chance of exactly it, so that differences leaning neither way give 0.
  const std::vector<double> chance = chanceOfSums(ranks);
  double above = chance[static_cast<size_t>(positive)] / 2;
  for (size_t s = static_cast<size_t>(positive) + 1; s < chance.size(); ++s) above += chance[s];
  return deviateAbove(above);
}

}  // namespace kvo::recognition
