#pragma once
// Barcodes and QR codes, encoded by libzint and drawn from its vector
// output: every module lands on whole dots, NARROW (or CELL) dots wide.

#include <cairo.h>

#include <string>

namespace orvante::vprinter {

struct BarcodeRequest {
  int x = 0;
  int y = 0;
  std::string type;  // "128", "39", "93", "EAN13", "EAN8", "UPCA", "UPCE", "CODA", "25"...
  int height = 0;    // of the bars, in dots
  bool readable = true;
  int rotation = 0;
  int narrow = 1;  // module width in dots
  int alignment = 0;
  std::string content;
};

struct QrRequest {
  int x = 0;
  int y = 0;
  char ecc = 'M';  // L, M, Q or H
  int cell = 1;    // module size in dots
  bool manual = false;
  int rotation = 0;
  int mask = -1;  // 0 to 7, or automatic
  std::string content;
};

// Both throw CommandWarning for a type, content or size the symbology
// cannot take.
void drawBarcode(cairo_t* context, const BarcodeRequest& request);
void drawQrCode(cairo_t* context, const QrRequest& request);

// The zint symbology of a barcode type name, or 0 for none.
int symbologyOf(const std::string& type);

}  // namespace orvante::vprinter
