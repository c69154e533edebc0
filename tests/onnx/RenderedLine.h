#pragma once

// A line of known text drawn with cairo in a Debian font, black on white, at
// a chosen angle, with the quadrilateral its text occupies in the page's
// pixels (cairo's text extents carried through the same transformation).

#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/onnx/OnnxTextReader.h"

namespace kvo::onnx::testing {

struct RenderedLine {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> grey;  // width * height
  Point ink[4];               // top-left, top-right, bottom-right, bottom-left of the text

  PageView view() const { return PageView{grey.data(), width, height, 1, size_t(width)}; }
  // The same page with 3 (RGB) or 4 (RGBA) channels a pixel.
  std::vector<uint8_t> withChannels(int channels) const {
    std::vector<uint8_t> out;
    out.reserve(grey.size() * channels);
    for (uint8_t v : grey)
      for (int c = 0; c < channels; ++c) out.push_back(c == 3 ? 255 : v);
    return out;
  }
};

inline RenderedLine renderLine(const std::string& text, double pixelSize, double degrees, int width, int height,
                               const char* family = "Noto Sans CJK SC") {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  cairo_t* cr = cairo_create(surface);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  cairo_select_font_face(cr, family, CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(cr, pixelSize);
  cairo_text_extents_t extents;
  cairo_text_extents(cr, text.c_str(), &extents);
  // The text's centre at the page's centre, turned by `degrees` (positive:
  // clockwise on the page, y pointing down).
  cairo_translate(cr, width / 2.0, height / 2.0);
  cairo_rotate(cr, degrees * M_PI / 180.0);
  cairo_translate(cr, -(extents.x_bearing + extents.width / 2), -(extents.y_bearing + extents.height / 2));
  cairo_set_source_rgb(cr, 0, 0, 0);
  cairo_move_to(cr, 0, 0);
  cairo_show_text(cr, text.c_str());

  RenderedLine line;
  line.width = width;
  line.height = height;
  double corners[4][2] = {{extents.x_bearing, extents.y_bearing},
                          {extents.x_bearing + extents.width, extents.y_bearing},
                          {extents.x_bearing + extents.width, extents.y_bearing + extents.height},
                          {extents.x_bearing, extents.y_bearing + extents.height}};
  for (int i = 0; i < 4; ++i) {
    double x = corners[i][0], y = corners[i][1];
    cairo_user_to_device(cr, &x, &y);
    line.ink[i] = Point{float(x), float(y)};
  }
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  const uint8_t* data = cairo_image_surface_get_data(surface);
  int stride = cairo_image_surface_get_stride(surface);
  line.grey.resize(size_t(width) * height);
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x) {
      const uint8_t* px = data + size_t(y) * stride + 4 * x;  // B, G, R, unused
      line.grey[size_t(y) * width + x] = uint8_t((px[0] + px[1] + px[2]) / 3);
    }
  cairo_surface_destroy(surface);
  // cairo's font caches and fontconfig's configuration would otherwise
  // live until exit, which LeakSanitizer reports as leaks.
  cairo_debug_reset_static_data();
  FcFini();
  return line;
}

}  // namespace kvo::onnx::testing
