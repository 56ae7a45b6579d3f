#pragma once
// The documents the tests print, made on the spot: a 4 x 6 inch label with a
// black square in its top-left quarter as PNG, PDF and PWG raster, a damaged
// PDF and a PNG that claims 100000 x 100000 pixels.

#include <cairo-pdf.h>
#include <cairo.h>
#include <cups/raster.h>
#include <zlib.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

namespace orvante::testing {

inline constexpr int kLabelDpi = 203;

// A black inch square whose corner is half an inch in from the top left.
inline void drawLabel(cairo_t* cr, double unitsPerInch) {
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  cairo_set_source_rgb(cr, 0, 0, 0);
  cairo_rectangle(cr, 0.5 * unitsPerInch, 0.5 * unitsPerInch, unitsPerInch, unitsPerInch);
  cairo_fill(cr);
}

inline void writePng(const std::filesystem::path& path) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 4 * kLabelDpi, 6 * kLabelDpi);
  cairo_t* cr = cairo_create(surface);
  drawLabel(cr, kLabelDpi);
  cairo_destroy(cr);
  cairo_surface_write_to_png(surface, path.c_str());
  cairo_surface_destroy(surface);
}

inline void writePdf(const std::filesystem::path& path) {
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), 4 * 72, 6 * 72);
  cairo_t* cr = cairo_create(surface);
  drawLabel(cr, 72);
  cairo_show_page(cr);
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
}

// Pages of 4 x 6 inches, each with its number from 1 as a row of squares
// (its bits), so that every page's label differs from the others'.
inline void writeNumberedPdf(const std::filesystem::path& path, int pages) {
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), 4 * 72, 6 * 72);
  cairo_t* cr = cairo_create(surface);
  for (int page = 1; page <= pages; ++page) {
    cairo_set_source_rgb(cr, 0, 0, 0);
    for (int bit = 0; bit < 8; ++bit) {
      if (page & (1 << bit)) cairo_rectangle(cr, 18 + bit * 30, 36, 24, 24);
    }
    cairo_fill(cr);
    cairo_show_page(cr);
  }
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
}

inline void writeBlackPng(const std::filesystem::path& path, int width, int height) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
  cairo_t* cr = cairo_create(surface);
  cairo_set_source_rgb(cr, 0, 0, 0);
  cairo_paint(cr);
  cairo_destroy(cr);
  cairo_surface_write_to_png(surface, path.c_str());
  cairo_surface_destroy(surface);
}

// A page of its own size, wholly black.
inline void writeBlackPdf(const std::filesystem::path& path, double widthPoints,
                          double heightPoints) {
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), widthPoints, heightPoints);
  cairo_t* cr = cairo_create(surface);
  cairo_set_source_rgb(cr, 0, 0, 0);
  cairo_paint(cr);
  cairo_show_page(cr);
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
}

// One 8-bit grey page of 4 x 6 inches at 203 dpi.
inline void writePwgRaster(const std::filesystem::path& path) {
  cups_page_header2_t header;
  cupsRasterInitPWGHeader(&header, pwgMediaForPWG("oe_4x6-label_4x6in"), "sgray_8", kLabelDpi,
                          kLabelDpi, "one-sided", nullptr);
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  cups_raster_t* raster = cupsRasterOpen(fd, CUPS_RASTER_WRITE_PWG);
  cupsRasterWriteHeader2(raster, &header);
  std::string line(header.cupsBytesPerLine, '\xFF');
  for (unsigned y = 0; y < header.cupsHeight; ++y) {
    const bool band = y >= kLabelDpi / 2 && y < kLabelDpi * 3 / 2;
    for (unsigned x = 0; x < header.cupsWidth; ++x) {
      line[x] = band && x >= kLabelDpi / 2 && x < kLabelDpi * 3 / 2 ? '\0' : '\xFF';
    }
    cupsRasterWritePixels(raster, reinterpret_cast<unsigned char*>(line.data()),
                          header.cupsBytesPerLine);
  }
  cupsRasterClose(raster);
  close(fd);
}

inline void writeDamagedPdf(const std::filesystem::path& path) {
  std::ofstream(path, std::ios::binary) << "%PDF-1.4\n1 0 obj << /Type /Catalog /Pages 2 0 R";
}

namespace detail {
inline void pngChunk(std::string& out, const char* type, const std::string& data) {
  auto be32 = [&](std::uint32_t v) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>(v >> shift));
  };
  be32(static_cast<std::uint32_t>(data.size()));
  const std::string body = std::string(type, 4) + data;
  out += body;
  be32(static_cast<std::uint32_t>(
      crc32(0, reinterpret_cast<const Bytef*>(body.data()), static_cast<uInt>(body.size()))));
}
}  // namespace detail

// A valid PNG header for 100000 x 100000 grey pixels and a few rows of data:
// enough for a decoder to believe it, small enough to send.
inline void writeHugePng(const std::filesystem::path& path) {
  std::string png = "\x89PNG\r\n\x1a\n";
  std::string ihdr;
  for (std::uint32_t v : {100000u, 100000u}) {
    for (int shift = 24; shift >= 0; shift -= 8) ihdr.push_back(static_cast<char>(v >> shift));
  }
  ihdr += std::string("\x08\x00\x00\x00\x00", 5);  // 8-bit grey, no interlace
  detail::pngChunk(png, "IHDR", ihdr);
  std::string rows(3 * 100001, '\0');
  uLongf size = compressBound(static_cast<uLong>(rows.size()));
  std::string packed(size, '\0');
  compress(reinterpret_cast<Bytef*>(packed.data()), &size,
           reinterpret_cast<const Bytef*>(rows.data()), static_cast<uLong>(rows.size()));
  packed.resize(size);
  detail::pngChunk(png, "IDAT", packed);
  detail::pngChunk(png, "IEND", "");
  std::ofstream(path, std::ios::binary) << png;
}

}  // namespace orvante::testing
