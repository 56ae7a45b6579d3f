#include "raster_formats.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

#include "../commands/text_encoding.hpp"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace orvante::raster {

namespace {

// Each channel's term of the grey for every byte value: the very products
// grey() forms, so their sum, taken in the same order, equals it bit for
// bit.
struct GreyTerms {
  std::array<double, 256> r, g, b;
  GreyTerms() {
    for (int v = 0; v < 256; ++v) {
      r[v] = v * 0.299;
      g[v] = v * 0.587;
      b[v] = v * 0.114;
    }
  }
};

const GreyTerms& greyTerms() {
  static const GreyTerms terms;
  return terms;
}

std::uint32_t wordOf(std::array<std::uint8_t, 4> bytes) {
  std::uint32_t word;
  std::memcpy(&word, bytes.data(), 4);
  return word;
}

#if defined(__SSE2__)
// The byte with its bits in the opposite order.
std::uint8_t reverseBits(unsigned byte) {
  static constexpr auto reversed = [] {
    std::array<std::uint8_t, 256> table{};
    for (unsigned v = 0; v < 256; ++v) {
      for (unsigned bit = 0; bit < 8; ++bit) {
        if (v & (1u << bit)) table[v] |= static_cast<std::uint8_t>(0x80u >> bit);
      }
    }
    return table;
  }();
  return reversed[byte];
}

// Whether each of 4 pixels is light, in the low 4 bits, the first pixel
// lowest: the same products and sums as the tables hold, two at a time.
[[gnu::always_inline]] inline unsigned lightOfFour(__m128i pixels, bool whiteFill,
                                                 __m128d threshold) {
  if (whiteFill) {
    // Over opaque white, a premultiplied colour gains what its alpha lacks,
    // up to 255 in each channel.
    const __m128i lift = _mm_srli_epi32(_mm_andnot_si128(pixels, _mm_set1_epi32(-1)), 24);
    pixels = _mm_adds_epu8(
        pixels, _mm_or_si128(lift, _mm_or_si128(_mm_slli_epi32(lift, 8), _mm_slli_epi32(lift, 16))));
  }
  const __m128i low = _mm_set1_epi32(0xFF);
  const __m128i red = _mm_and_si128(pixels, low);
  const __m128i green = _mm_and_si128(_mm_srli_epi32(pixels, 8), low);
  const __m128i blue = _mm_and_si128(_mm_srli_epi32(pixels, 16), low);
  // ((r * 0.299 + g * 0.587) + b * 0.114) for pixels 0 and 1, then 2 and 3.
  auto grey = [](__m128i r, __m128i g, __m128i b) {
    return _mm_add_pd(_mm_add_pd(_mm_mul_pd(_mm_cvtepi32_pd(r), _mm_set1_pd(0.299)),
                                 _mm_mul_pd(_mm_cvtepi32_pd(g), _mm_set1_pd(0.587))),
                      _mm_mul_pd(_mm_cvtepi32_pd(b), _mm_set1_pd(0.114)));
  };
  const __m128d first = grey(red, green, blue);
  const __m128d second =
      grey(_mm_srli_si128(red, 8), _mm_srli_si128(green, 8), _mm_srli_si128(blue, 8));
  return static_cast<unsigned>(_mm_movemask_pd(_mm_cmpge_pd(first, threshold))) |
         static_cast<unsigned>(_mm_movemask_pd(_mm_cmpge_pd(second, threshold))) << 2;
}
#endif

}  // namespace

PaddedRaster thresholdRaster(const Image& image, bool whiteFill, double threshold) {
  PaddedRaster raster;
  const int width = image.pixelWidth();
  const int height = image.pixelHeight();
  raster.bytesPerRow = (width + 7) / 8;
  raster.rows = height;
  raster.bytes.assign(static_cast<std::size_t>(raster.bytesPerRow) * height, 0);
  const GreyTerms& terms = greyTerms();
  // Labels are mostly opaque white and black: those two are decided once.
  const std::uint32_t white = wordOf({255, 255, 255, 255});
  const std::uint32_t black = wordOf({0, 0, 0, 255});
  const bool whiteIsLight = terms.r[255] + terms.g[255] + terms.b[255] >= threshold;
  const bool blackIsLight = terms.r[0] + terms.g[0] + terms.b[0] >= threshold;
  const std::uint8_t* pixel = image.rgba().data();
  std::uint8_t* out = raster.bytes.data();
#if defined(__SSE2__)
  const __m128d limit = _mm_set1_pd(threshold);
  const __m128i allWhite = _mm_set1_epi32(static_cast<int>(white));
  const std::uint8_t whiteByte = whiteIsLight ? 0xFF : 0x00;
#endif
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; x += 8) {
      const int count = std::min(8, width - x);
#if defined(__SSE2__)
      if (count == 8) {
        const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixel));
        const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i*>(pixel + 16));
        pixel += 32;
        if (_mm_movemask_epi8(_mm_and_si128(_mm_cmpeq_epi32(first, allWhite),
                                            _mm_cmpeq_epi32(second, allWhite))) == 0xFFFF) {
          *out++ = whiteByte;
          continue;
        }
        // The first pixel is the byte's highest bit.
        const unsigned light = lightOfFour(first, whiteFill, limit) |
                               lightOfFour(second, whiteFill, limit) << 4;
        *out++ = reverseBits(light);
        continue;
      }
#endif
      unsigned bits = 0;
      for (int i = 0; i < count; ++i, pixel += 4) {
        std::uint32_t word;
        std::memcpy(&word, pixel, 4);
        bool light;
        if (word == white) {
          light = whiteIsLight;
        } else if (word == black) {
          light = blackIsLight;
        } else {
          // Over opaque white, a premultiplied colour gains what its alpha lacks.
          const int lift = whiteFill ? 255 - pixel[3] : 0;
          light = terms.r[std::min(255, pixel[0] + lift)] +
                      terms.g[std::min(255, pixel[1] + lift)] +
                      terms.b[std::min(255, pixel[2] + lift)] >=
                  threshold;
        }
        bits = (bits << 1) | (light ? 1u : 0u);
      }
      // The unused bits of a row's last byte are light.
      bits = (bits << (8 - count)) | ((1u << (8 - count)) - 1);
      *out++ = static_cast<std::uint8_t>(bits);
    }
  }
  return raster;
}

Bytes alphaRaster(const Image& image) {
  const std::size_t size = static_cast<std::size_t>(image.pixelWidth() / 8) *
                           static_cast<std::size_t>(image.pixelHeight());
  Bytes bits(size, 0);
  const std::size_t pixels =
      std::min(static_cast<std::size_t>(image.pixelWidth()) * image.pixelHeight(), size * 8);
  const std::uint8_t* rgba = image.rgba().data();
  for (std::size_t i = 0; i < pixels; ++i) {
    if (rgba[i * 4 + 3] == 0) bits[i / 8] |= static_cast<std::uint8_t>(0x80 >> (i % 8));
  }
  return bits;
}

Bytes packetHeader(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow, std::int32_t rows) {
  Bytes header{0x21, 0x53};
  for (std::int32_t field : {x, y, bytesPerRow, rows}) {
    header.push_back(static_cast<std::uint8_t>(field % 256));
    header.push_back(static_cast<std::uint8_t>(field / 256));
  }
  header.resize(16, 0);
  return header;
}

std::string bitmapCommandText(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow,
                              std::int32_t rows) {
  return "BITMAP " + std::to_string(x) + "," + std::to_string(y) + "," +
         std::to_string(bytesPerRow) + "," + std::to_string(rows) + ",2,";
}

Bytes bitmapCommand(std::int32_t x, std::int32_t y, std::int32_t bytesPerRow, std::int32_t rows,
                    ByteView raster) {
  Bytes command = encode(bitmapCommandText(x, y, bytesPerRow, rows), Encoding::MacRoman);
  command.insert(command.end(), raster.begin(), raster.end());
  command.push_back('\r');
  command.push_back('\n');
  return command;
}

}  // namespace orvante::raster
