// Image values and their decoding through gdk-pixbuf.

#include <orvante/image.hpp>

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <stdexcept>
#include <vector>

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
  if (width <= 0 || height <= 0 || channels < 3 || gdk_pixbuf_get_bits_per_sample(pixbuf) != 8 ||
      std::int64_t{width} * height > kMaxRenderedPixels) {
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

// Decoding goes through one loader for files and bytes alike, fed in
// pieces. The loader reports the size from the header before it allocates
// the pixels; an image over the budget is stopped there (a size of 0 x 0
// makes the codecs give up), so a few bytes claiming a huge image cost
// nothing.
class BudgetedLoader {
 public:
  explicit BudgetedLoader(const char* format) : loader_(gdk_pixbuf_loader_new_with_type(format, nullptr)) {
    g_signal_connect(loader_, "size-prepared", G_CALLBACK(&BudgetedLoader::sizePrepared), this);
  }
  ~BudgetedLoader() {
    if (!loader_) return;
    if (!closed_) gdk_pixbuf_loader_close(loader_, nullptr);
    g_object_unref(loader_);
  }
  BudgetedLoader(const BudgetedLoader&) = delete;
  BudgetedLoader& operator=(const BudgetedLoader&) = delete;

  // False once the data is known to give no image.
  bool write(ByteView bytes) {
    if (!loader_) return false;
    GError* error = nullptr;
    const bool ok = gdk_pixbuf_loader_write(loader_, bytes.data(), bytes.size(), &error);
    if (error) g_error_free(error);
    return ok && !tooLarge_;
  }

  Image finish() {
    GError* error = nullptr;
    closed_ = true;
    const bool ok = gdk_pixbuf_loader_close(loader_, &error);
    if (error) g_error_free(error);
    if (!ok || tooLarge_) return {};
    return fromPixbuf(gdk_pixbuf_loader_get_pixbuf(loader_));
  }

 private:
  static void sizePrepared(GdkPixbufLoader* loader, int width, int height, gpointer self) {
    if (width > 0 && height > 0 && std::int64_t{width} * height <= kMaxRenderedPixels) return;
    static_cast<BudgetedLoader*>(self)->tooLarge_ = true;
    gdk_pixbuf_loader_set_size(loader, 0, 0);
  }

  GdkPixbufLoader* loader_;
  bool tooLarge_ = false;
  bool closed_ = false;
};

constexpr std::size_t kPiece = 64 * 1024;

std::uint32_t littleEndian32(ByteView bytes, std::size_t at) {
  return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 |
         static_cast<std::uint32_t>(bytes[at + 3]) << 24;
}

// The format of an image by its first bytes, or none: only the formats
// labels come in are decoded, so a printer's input never reaches the
// system's other, rarely used loaders. A BMP must place its pixels and
// header inside the data, or its loader would reserve what it claims.
const char* formatOf(ByteView head, std::uint64_t total) {
  auto startsWith = [&](std::initializer_list<std::uint8_t> magic) {
    return head.size() >= magic.size() && std::equal(magic.begin(), magic.end(), head.begin());
  };
  if (startsWith({0x89, 'P', 'N', 'G'})) return "png";
  if (startsWith({0xFF, 0xD8, 0xFF})) return "jpeg";
  if (startsWith({'G', 'I', 'F', '8'})) return "gif";
  if (startsWith({'B', 'M'}) && head.size() >= 18) {
    const std::uint32_t pixelsAt = littleEndian32(head, 10);
    const std::uint32_t headerSize = littleEndian32(head, 14);
    if (pixelsAt <= total && headerSize >= 12 && headerSize <= pixelsAt) return "bmp";
  }
  return nullptr;
}

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
  std::error_code failure;
  const auto total = std::filesystem::file_size(path, failure);
  std::ifstream file(path, std::ios::binary);
  if (failure || !file) return {};
  std::vector<char> piece(kPiece);
  std::optional<BudgetedLoader> loader;
  while (file) {
    file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
    const auto count = static_cast<std::size_t>(file.gcount());
    if (count == 0) break;
    const ByteView bytes{reinterpret_cast<const std::uint8_t*>(piece.data()), count};
    if (!loader) {
      const char* format = formatOf(bytes, total);
      if (!format) return {};
      loader.emplace(format);
    }
    if (!loader->write(bytes)) return {};
  }
  if (!loader || file.bad()) return {};
  return loader->finish();
}

Image Image::fromData(ByteView bytes) {
  const char* format = formatOf(bytes, bytes.size());
  if (!format) return {};
  BudgetedLoader loader(format);
  for (std::size_t at = 0; at < bytes.size(); at += kPiece) {
    if (!loader.write(bytes.subspan(at, std::min(kPiece, bytes.size() - at)))) return {};
  }
  return loader.finish();
}

}  // namespace orvante
