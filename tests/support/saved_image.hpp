#pragma once
// Images saved by gdk-pixbuf in a format, for decoding tests.

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <orvante/bytes.hpp>

namespace orvante::testing {

// The pixbuf saved in the format ("png", "jpeg", "bmp"); takes it over.
inline Bytes savedAs(GdkPixbuf* pixbuf, const char* format) {
  gchar* buffer = nullptr;
  gsize size = 0;
  gdk_pixbuf_save_to_buffer(pixbuf, &buffer, &size, format, nullptr, nullptr);
  Bytes bytes(buffer, buffer + size);
  g_free(buffer);
  g_object_unref(pixbuf);
  return bytes;
}

}  // namespace orvante::testing
