#include "recognition/PageTurn.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using kvo::NormalizedPoint;
using kvo::TextObservation;
using kvo::recognition::PageTurn;

constexpr double kQuarter = M_PI / 2;

class PageTurnTest : public ::testing::Test {
 protected:
  static void expectPoint(NormalizedPoint got, double x, double y) {
    EXPECT_NEAR(got.x, x, 1e-9);
    EXPECT_NEAR(got.y, y, 1e-9);
  }
  // An observation whose box spans (left, bottom) to (right, top), normalised.
  static TextObservation box(double left, double bottom, double right, double top) {
    TextObservation o;
    o.topLeft = {left, top};
    o.topRight = {right, top};
    o.bottomRight = {right, bottom};
    o.bottomLeft = {left, bottom};
    return o;
  }
};

TEST_F(PageTurnTest, NoTurnKeepsTheCanvasAndEveryPoint) {
  const PageTurn turn = PageTurn::of(200, 100, 0);
  EXPECT_EQ(turn.turnedWidth, 200);
  EXPECT_EQ(turn.turnedHeight, 100);
  expectPoint(turn.toPage(13, 77), 13, 77);
}

TEST_F(PageTurnTest, CanvasHoldsTheWholeTurnedPage) {
  const PageTurn quarter = PageTurn::of(200, 100, kQuarter);
  EXPECT_EQ(quarter.turnedWidth, 100);
  EXPECT_EQ(quarter.turnedHeight, 200);
  const double angle = 3 * M_PI / 180, c = std::cos(angle), s = std::sin(angle);
  const PageTurn slight = PageTurn::of(1000, 500, angle);
  EXPECT_EQ(slight.turnedWidth, static_cast<int>(std::ceil(1000 * c + 500 * s)));
  EXPECT_EQ(slight.turnedHeight, static_cast<int>(std::ceil(1000 * s + 500 * c)));
}

TEST_F(PageTurnTest, CentresCorrespond) {
  const PageTurn turn = PageTurn::of(300, 120, 0.07);
  expectPoint(turn.toPage(turn.turnedWidth / 2.0, turn.turnedHeight / 2.0), 150, 60);
}

TEST_F(PageTurnTest, QuarterTurnClockwiseMapsTheCanvasCornersBackOntoThePage) {
  // Turned a quarter clockwise, the page's top-left corner is at the
  // canvas's top-right, its bottom-left at the canvas's top-left.
  const PageTurn turn = PageTurn::of(200, 100, kQuarter);
  expectPoint(turn.toPage(100, 0), 0, 0);
  expectPoint(turn.toPage(0, 0), 0, 100);
  expectPoint(turn.toPage(0, 200), 200, 100);
}

TEST_F(PageTurnTest, QuarterTurnOfTheGreyPageMapsBackPixelForPixel) {
  // turnGreyQuarter puts the 3 × 2 page's top-left pixel at column 1, row 0
  // of the 2 × 3 page turned clockwise; its centre maps back onto the first
  // pixel's centre.
  const PageTurn turn{kQuarter, 3, 2, 2, 3};
  expectPoint(turn.toPage(1.5, 0.5), 0.5, 0.5);
  const PageTurn back{-kQuarter, 3, 2, 2, 3};
  // Counter-clockwise, the top-left pixel lands at column 0, row 2.
  expectPoint(back.toPage(0.5, 2.5), 0.5, 0.5);
}

TEST_F(PageTurnTest, StraightLineOnTheTurnedCanvasBecomesATurnedQuadOnThePage) {
  const double angle = 4 * M_PI / 180;
  const PageTurn turn = PageTurn::of(1000, 800, angle);
  TextObservation line = box(0.2, 0.5, 0.8, 0.55);
  turn.mapBack(line);
  // The quad keeps its shape: opposite sides parallel, turned back by the
  // angle (counter-clockwise on the screen: with the origin at the
  // bottom-left, the right end is higher).
  const double dx = (line.topRight.x - line.topLeft.x) * 1000, dy = (line.topRight.y - line.topLeft.y) * 800;
  EXPECT_NEAR(std::atan2(dy, dx), angle, 1e-9);
  EXPECT_NEAR(line.bottomRight.x - line.bottomLeft.x, line.topRight.x - line.topLeft.x, 1e-12);
  EXPECT_NEAR(line.bottomRight.y - line.bottomLeft.y, line.topRight.y - line.topLeft.y, 1e-12);
  EXPECT_NEAR(std::hypot(dx, dy), 0.6 * turn.turnedWidth, 1e-9);
}

TEST_F(PageTurnTest, TurningAPointAndMappingItBackReturnsIt) {
  const double angle = -2.5 * M_PI / 180;
  const PageTurn turn = PageTurn::of(640, 480, angle);
  // Where the page point (100, 50) lands on the canvas: turned clockwise by the angle about the centres.
  const double dx = 100 - 320.0, dy = 50 - 240.0;
  const double x = turn.turnedWidth / 2.0 + dx * std::cos(angle) - dy * std::sin(angle);
  const double y = turn.turnedHeight / 2.0 + dx * std::sin(angle) + dy * std::cos(angle);
  expectPoint(turn.toPage(x, y), 100, 50);
}

}  // namespace
