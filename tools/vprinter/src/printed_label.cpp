// The printed label and its PNG: the rows are already what a 1-bit grey
// PNG holds (MSB first, 1 white), so they go to libpng unchanged.

#include <orvante/vprinter/printed_label.hpp>

#include <png.h>

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <stdexcept>

namespace orvante::vprinter {

PrintedLabel::PrintedLabel(int width, int height, Bytes rows)
    : width_(width), height_(height), rows_(std::move(rows)) {
  if (width < 0 || height < 0 || rows_.size() != stride() * static_cast<std::size_t>(height)) {
    throw std::invalid_argument("label rows do not match its size");
  }
}

bool PrintedLabel::printed(int x, int y) const {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) return false;
  return !(rows_[static_cast<std::size_t>(y) * stride() + static_cast<std::size_t>(x >> 3)] &
           (0x80 >> (x & 7)));
}

std::size_t PrintedLabel::printedIn(int x0, int y0, int x1, int y1) const {
  std::size_t count = 0;
  for (int y = std::max(y0, 0); y < std::min(y1, height_); ++y) {
    for (int x = std::max(x0, 0); x < std::min(x1, width_); ++x) count += printed(x, y);
  }
  return count;
}

namespace {

void appendChunk(png_structp png, png_bytep data, png_size_t length) {
  auto* out = static_cast<Bytes*>(png_get_io_ptr(png));
  out->insert(out->end(), data, data + length);
}

void noFlush(png_structp) {}

}  // namespace

Bytes PrintedLabel::png() const {
  Bytes out;
  const Bytes blank(std::max<std::size_t>(stride(), 1), 0xFF);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    throw std::runtime_error("PNG: out of memory");
  }
  // libpng reports its failures by a long jump back here; nothing between
  // here and libpng's frames owns resources.
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw std::runtime_error("PNG: cannot encode the label");
  }
  png_set_write_fn(png, &out, appendChunk, noFlush);
  // Label rasters are mostly white runs: the fastest zlib level with no
  // row filter is small enough and fast.
  png_set_compression_level(png, 1);
  png_set_filter(png, 0, PNG_FILTER_NONE);
  const bool empty = width_ == 0 || height_ == 0;
  png_set_IHDR(png, info, static_cast<png_uint_32>(std::max(width_, 1)),
               static_cast<png_uint_32>(std::max(height_, 1)), 1, PNG_COLOR_TYPE_GRAY,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < std::max(height_, 1); ++y) {
    const std::uint8_t* row =
        empty ? blank.data() : rows_.data() + static_cast<std::size_t>(y) * stride();
    png_write_row(png, const_cast<png_bytep>(row));
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return out;
}

void PrintedLabel::writePng(const std::filesystem::path& path) const {
  const Bytes bytes = png();
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) throw std::runtime_error("cannot write " + path.string());
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  if (std::fclose(file) != 0 || !written) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace orvante::vprinter
