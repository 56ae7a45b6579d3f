#pragma once
// One printed label: a 1-bit raster in dots, rows top first, the most
// significant bit leftmost, a 1 bit blank and a 0 bit printed (the layout
// of the printer's own rasters and of a 1-bit grey PNG).

#include <cstddef>
#include <filesystem>

#include <orvante/bytes.hpp>

namespace orvante::vprinter {

class PrintedLabel {
 public:
  PrintedLabel() = default;
  // rows holds stride() x height bytes.
  PrintedLabel(int width, int height, Bytes rows);

  int width() const { return width_; }
  int height() const { return height_; }
  std::size_t stride() const { return (static_cast<std::size_t>(width_) + 7) / 8; }
  const Bytes& rows() const { return rows_; }

  // Whether the dot at (x, y) is printed; dots outside the label are not.
  bool printed(int x, int y) const;
  // Printed dots in the rectangle [x0, x1) x [y0, y1), clipped to the label.
  std::size_t printedIn(int x0, int y0, int x1, int y1) const;

  // The label as a 1-bit greyscale PNG.
  Bytes png() const;
  // Writes png() to a file; throws std::runtime_error when it cannot.
  void writePng(const std::filesystem::path& path) const;

 private:
  int width_ = 0;
  int height_ = 0;
  Bytes rows_;
};

}  // namespace orvante::vprinter
