#pragma once

#include "interfaces/TextRecognitionEngine.h"

namespace kvo::recognition {

// A page set straight before it is read: the page as given (width × height)
// turned by `radians` about its centre, clockwise on the screen (x to the
// right, y down) for a positive angle, onto a canvas large enough to hold
// all of it (turnedWidth × turnedHeight), centred. Lines read on the turned
// page are mapped back, so that a crooked line becomes a turned quadrilateral
// on the page as given.
struct PageTurn {
  double radians = 0;
  int width = 0, height = 0;
  int turnedWidth = 0, turnedHeight = 0;

  // The turn of a width × height page by `radians`, with the smallest canvas
  // that holds every pixel of it.
  static PageTurn of(int width, int height, double radians);

  // A point of the turned canvas, in pixels from its top-left corner, on the
  // page as given (pixels from its top-left corner; may lie off the page).
  NormalizedPoint toPage(double x, double y) const;

  // An observation whose corners are normalised to the turned canvas (origin
  // at the bottom-left, as engines report them) with its corners normalised
  // to the page as given instead.
  void mapBack(TextObservation& observation) const;
};

}  // namespace kvo::recognition
