#pragma once
// The label's image buffer: a 1-bit Cairo surface in dots, ink where a
// dot is printed. Shapes, text and barcodes draw through Cairo with
// antialiasing off; rasters, inversion and erasure work on the bits.

#include <cairo.h>

#include <memory>

#include <orvante/bytes.hpp>
#include <orvante/vprinter/printed_label.hpp>

namespace orvante::vprinter {

struct Rect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

// How a raster's printed dots combine with the buffer.
enum class BlitMode { Overwrite, Or, Xor };

using CairoContext = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

class Canvas {
 public:
  Canvas(int width, int height);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  int width() const { return width_; }
  int height() const { return height_; }

  void clear();
  // A new size; what lies in both sizes is kept.
  void resize(int width, int height);

  void fill(Rect rect);
  void invert(Rect rect);
  void erase(Rect rect);
  // Draws a raster (1 bit blank, 0 printed, MSB first) with its top-left
  // dot at (x, y); parts outside the label are cut off. Returns whether
  // any part was.
  bool blit(int x, int y, int bytesPerRow, int rows, ByteView raster, BlitMode mode);

  // A fresh context whose source is ink and whose antialiasing is off.
  CairoContext draw();

  // The buffer as printed: turned 180 degrees and/or mirrored left to right.
  PrintedLabel snapshot(bool turned, bool mirrored) const;

 private:
  std::uint8_t* row(int y);
  // Applies `op(byte, mask)` to the bits of [x0, x1) in row y.
  template <typename Op>
  void spanBits(int y, int x0, int x1, Op op);
  template <typename Op>
  void rectBits(Rect rect, Op op);

  int width_ = 0;
  int height_ = 0;
  cairo_surface_t* surface_ = nullptr;
};

}  // namespace orvante::vprinter
