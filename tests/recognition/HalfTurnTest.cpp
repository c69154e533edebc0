#include "recognition/HalfTurn.h"

#include <gtest/gtest.h>

#include <map>
#include <utility>
#include <vector>

namespace {

using kvo::recognition::Box;
using kvo::TextObservation;

class HalfTurn : public ::testing::Test {
 protected:
  // `count` lines of a page, 600 pixels wide and 30 tall, one under the other.
  static std::vector<Box> lines(int count) {
    std::vector<Box> out;
    for (int i = 0; i < count; ++i) out.push_back(Box{50, 40 + 50 * i, 650, 70 + 50 * i});
    return out;
  }
  static TextObservation observation(float confidence, double left = 0.1, double top = 0.9, double right = 0.5,
                                     double bottom = 0.8) {
    TextObservation o;
    o.candidate = kvo::RecognizedCandidate{"text", confidence};
    o.topLeft = {left, top};
    o.topRight = {right, top};
    o.bottomRight = {right, bottom};
    o.bottomLeft = {left, bottom};
    return o;
  }
  // A reader that reads every line standing at `standing` and turned at
  // `turned`, counting its reads.
  kvo::recognition::LineConfidence reader(int standing, int turned) {
    return [this, standing, turned](const Box&, bool isTurned) {
      ++reads_;
      return isTurned ? turned : standing;
    };
  }
  int reads_ = 0;
};

TEST_F(HalfTurn, APageReadSurelyIsNotDoubtful) {
  EXPECT_FALSE(kvo::recognition::doubtfulReading({observation(0.9f), observation(0.95f), observation(0.3f)}));
}

TEST_F(HalfTurn, APageMostOfWhoseLinesReadUnsurelyIsDoubtful) {
  EXPECT_TRUE(kvo::recognition::doubtfulReading({observation(0.2f), observation(0.4f), observation(0.95f)}));
}

TEST_F(HalfTurn, LinesWithoutTextAndPagesWithoutAnyAreNotCounted) {
  TextObservation blank = observation(0.0f);
  blank.candidate.reset();
  EXPECT_FALSE(kvo::recognition::doubtfulReading({}));
  EXPECT_FALSE(kvo::recognition::doubtfulReading({blank, blank}));
  EXPECT_FALSE(kvo::recognition::doubtfulReading({blank, blank, observation(0.9f)}));
}

TEST_F(HalfTurn, TheBoxOfAnObservationHoldsItsCornersInPagePixels) {
  const std::vector<Box> boxes = kvo::recognition::boxesWithText({observation(0.9f, 0.1, 0.9, 0.5, 0.8)}, 1000, 500);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].left, 100);
  EXPECT_EQ(boxes[0].right, 500);
  // Normalised corners have their origin at the bottom left.
  EXPECT_EQ(boxes[0].top, 50);
  EXPECT_EQ(boxes[0].bottom, 100);
}

TEST_F(HalfTurn, APageWhoseLinesReadSurerTurnedIsUpsideDown) {
  EXPECT_TRUE(kvo::recognition::readsUpsideDown(lines(10), reader(20, 85)));
  // Six lines settle the test; no more are read.
  EXPECT_EQ(reads_, 12);
}

TEST_F(HalfTurn, APageWhoseLinesReadSurerStandingIsNot) {
  EXPECT_FALSE(kvo::recognition::readsUpsideDown(lines(10), reader(85, 20)));
}

TEST_F(HalfTurn, LinesReadAsSurelyEitherWayLeaveThePageAsItStands) {
  // Faint print read doubtfully the right way up reads no surer turned.
  EXPECT_FALSE(kvo::recognition::readsUpsideDown(lines(20), reader(50, 50)));
  // At most kMostHalfTurnLines lines are read both ways.
  EXPECT_EQ(reads_, 2 * static_cast<int>(kvo::recognition::kMostHalfTurnLines));
}

TEST_F(HalfTurn, FewerThanSixLinesNeverTurnAPage) {
  EXPECT_FALSE(kvo::recognition::readsUpsideDown(lines(5), reader(10, 90)));
}

TEST_F(HalfTurn, MixedEvidenceDoesNotTurnAPage) {
  // Lines alternating: three read surer turned, three standing, and so on.
  std::map<int, std::pair<int, int>> byTop;
  const std::vector<Box> page = lines(12);
  for (size_t i = 0; i < page.size(); ++i)
    byTop[page[i].top] = i % 2 == 0 ? std::make_pair(30, 80) : std::make_pair(80, 30);
  EXPECT_FALSE(kvo::recognition::readsUpsideDown(page, [&](const Box& line, bool turned) {
    const auto& c = byTop.at(line.top);
    return turned ? c.second : c.first;
  }));
}

TEST_F(HalfTurn, LinesThatCannotBeReadCastNoVote) {
  int call = 0;
  // Every other line cannot be read either way; the rest read surer turned.
  EXPECT_TRUE(kvo::recognition::readsUpsideDown(lines(12), [&](const Box&, bool turned) {
    const bool unreadable = (call++ / 2) % 2 == 1;
    return unreadable ? -1 : (turned ? 90 : 10);
  }));
  EXPECT_FALSE(kvo::recognition::readsUpsideDown(lines(12), [](const Box&, bool) { return -1; }));
}

TEST_F(HalfTurn, LinesTooShortToSampleAreNotRead) {
  std::vector<Box> page;
  for (int i = 0; i < 10; ++i) page.push_back(Box{50, 40 + 50 * i, 80, 70 + 50 * i});  // one glyph wide
  EXPECT_FALSE(kvo::recognition::readsUpsideDown(page, reader(10, 90)));
  EXPECT_EQ(reads_, 0);
}

}  // namespace
