#include "recognition/PageTurn.h"

#include <cmath>

namespace kvo::recognition {

PageTurn PageTurn::of(int width, int height, double radians) {
  const double c = std::abs(std::cos(radians)), s = std::abs(std::sin(radians));
  PageTurn turn;
  turn.radians = radians;
  turn.width = width;
  turn.height = height;
  // Rounded up after removing the noise of the products, so that a turn by
  // 0 keeps the page's own size.
  turn.turnedWidth = static_cast<int>(std::ceil(width * c + height * s - 1e-9));
  turn.turnedHeight = static_cast<int>(std::ceil(width * s + height * c - 1e-9));
  return turn;
}

NormalizedPoint PageTurn::toPage(double x, double y) const {
  // Turning clockwise on the screen maps an offset d from the centre to
  // (dx cos - dy sin, dx sin + dy cos); going back turns it the other way.
  const double dx = x - turnedWidth / 2.0, dy = y - turnedHeight / 2.0;
  const double c = std::cos(radians), s = std::sin(radians);
  return {width / 2.0 + dx * c + dy * s, height / 2.0 - dx * s + dy * c};
}

void PageTurn::mapBack(TextObservation& o) const {
  for (NormalizedPoint* p : {&o.topLeft, &o.topRight, &o.bottomRight, &o.bottomLeft}) {
    const NormalizedPoint onPage = toPage(p->x * turnedWidth, (1 - p->y) * turnedHeight);
    p->x = onPage.x / width;
    p->y = 1 - onPage.y / height;
  }
}

}  // namespace kvo::recognition
