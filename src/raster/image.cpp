// Image values and their decoding through gdk-pixbuf.

#include <orvante/image.hpp>

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <memory>
#include <stdexcept>

namespace orvante {
namespace {

// gdk-pixbuf gives straight (not premultiplied) colours.
Image fromPixbuf(GdkPixbuf* pixbuf) {
  if (!pixbuf) return {};
  const int width = gdk_pixbuf_get_width(pixbuf);
  const int height = gdk_pixbuf_get_height(pixbuf);
  const int channels = gdk_pixbuf_get_n_channels(pixbuf);
  const int stride = gdk_pixbuf_get_rowstride(pixbuf);
  const bool alpha = gdk_pixbuf_get_has_alpha(pixbuf);
  const guchar* pixels = gdk_pixbuf_read_pixels(pixbuf);
  if (width <= 0 || height <= 0 || channels < 3 || gdk_pixbuf_get_bits_per_sample(pixbuf) != 8) {
    return {};
  }
  Bytes rgba(static_cast<std::size_t>(width) * height * 4);
  std::uint8_t* out = rgba.data();
  for (int y = 0; y < height; ++y) {
    const guchar* in = pixels + static_cast<std::size_t>(y) * stride;
    for (int x = 0; x < width; ++x, in += channels, out += 4) {
      const unsigned a = alpha ? in[3] : 255;
      for (int c = 0; c < 3; ++c) out[c] = static_cast<std::uint8_t>((in[c] * a + 127) / 255);
      out[3] = static_cast<std::uint8_t>(a);
    }
  }
  return Image(width, height, std::move(rgba));
}

struct PixbufReleaser {
  void operator()(GdkPixbuf* pixbuf) const { g_object_unref(pixbuf); }
};

}  // namespace

Image::Image(int width, int height, Bytes rgba, double scale)
    : width_(width), height_(height), scale_(scale > 0 ? scale : 1), rgba_(std::move(rgba)) {
  if (width < 0 || height < 0 ||
      rgba_.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4) {
    throw std::invalid_argument("image pixels do not match its size");
  }
}

Image Image::transparent(int width, int height) {
  if (width <= 0 || height <= 0) return {};
  return Image(width, height, Bytes(static_cast<std::size_t>(width) * height * 4, 0));
}

Image Image::fromFile(const std::string& path) {
  GError* error = nullptr;
  std::unique_ptr<GdkPixbuf, PixbufReleaser> pixbuf(gdk_pixbuf_new_from_file(path.c_str(), &error));
  if (error) g_error_free(error);
  return fromPixbuf(pixbuf.get());
}

Image Image::fromData(ByteView bytes) {
  if (bytes.empty()) return {};
  GdkPixbufLoader* loader = gdk_pixbuf_loader_new();
  GError* error = nullptr;
  bool ok = gdk_pixbuf_loader_write(loader, bytes.data(), bytes.size(), &error);
  if (error) g_clear_error(&error);
  ok = gdk_pixbuf_loader_close(loader, &error) && ok;
  if (error) g_clear_error(&error);
  Image image = ok ? fromPixbuf(gdk_pixbuf_loader_get_pixbuf(loader)) : Image();
  g_object_unref(loader);
  return image;
}

}  // namespace orvante
