// Images whose headers claim more pixels than any label needs: refused
// from the header, quickly and within a small memory limit, whether they
// come as bytes or as a file.

#include <gtest/gtest.h>

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

#include "saved_image.hpp"
#include "test_session.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

void putBigEndian(Bytes& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<std::uint8_t>(value >> shift));
}

void chunk(Bytes& png, const char* type, const Bytes& data) {
  putBigEndian(png, static_cast<std::uint32_t>(data.size()));
  Bytes body(type, type + 4);
  body.insert(body.end(), data.begin(), data.end());
  png.insert(png.end(), body.begin(), body.end());
  putBigEndian(png, static_cast<std::uint32_t>(crc32(0, body.data(), static_cast<uInt>(body.size()))));
}

// A PNG of the given header; the image data is `rows` rows of `rowBytes`
// zero bytes, compressed, of which only `keep` bytes are written (all when
// `keep` is 0).
Bytes png(std::uint32_t width, std::uint32_t height, std::uint8_t depth, std::uint8_t colour,
          std::size_t rows, std::size_t rowBytes, std::size_t keep = 0) {
  Bytes out{0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  Bytes header;
  putBigEndian(header, width);
  putBigEndian(header, height);
  header.insert(header.end(), {depth, colour, 0, 0, 0});
  chunk(out, "IHDR", header);
  const Bytes raw(rows * (rowBytes + 1), 0);
  uLongf size = compressBound(static_cast<uLong>(raw.size()));
  Bytes packed(size);
  compress2(packed.data(), &size, raw.data(), static_cast<uLong>(raw.size()), 9);
  packed.resize(keep ? std::min<std::size_t>(keep, size) : size);
  chunk(out, "IDAT", packed);
  if (!keep) chunk(out, "IEND", {});
  return out;
}

// A flat image of one colour saved in a format.
Bytes saved(int width, int height, guint32 rgba, const char* format) {
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, width, height);
  gdk_pixbuf_fill(pixbuf, rgba);
  return savedAs(pixbuf, format);
}

// A small JPEG whose frame header is made to claim width x height.
Bytes jpegClaiming(std::uint16_t width, std::uint16_t height) {
  Bytes bytes = saved(8, 8, 0x808080ff, "jpeg");
  for (std::size_t i = 0; i + 8 < bytes.size(); ++i) {
    if (bytes[i] == 0xFF && bytes[i + 1] == 0xC0) {
      bytes[i + 5] = static_cast<std::uint8_t>(height >> 8);
      bytes[i + 6] = static_cast<std::uint8_t>(height);
      bytes[i + 7] = static_cast<std::uint8_t>(width >> 8);
      bytes[i + 8] = static_cast<std::uint8_t>(width);
      break;
    }
  }
  return bytes;
}

std::vector<Bytes> bombs() {
  return {
      png(60000, 60000, 8, 6, 4, 16, 40),   // a header and a few bytes of data
      png(12000, 12000, 1, 0, 12000, 1500),  // complete: a white 144-megapixel page
      jpegClaiming(20000, 20000),
  };
}

// Decodes every bomb from bytes and from a file; true when all are empty.
bool allRefused() {
  const auto path = std::filesystem::temp_directory_path() /
                    ("orvante-bomb-" + std::to_string(::getpid()));
  bool refused = true;
  for (const Bytes& bomb : bombs()) {
    refused = refused && Image::fromData(bomb).empty();
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bomb.data()), static_cast<std::streamsize>(bomb.size()));
    refused = refused && Image::fromFile(path).empty();
  }
  std::filesystem::remove(path);
  return refused;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

}  // namespace

TEST(HostileImage, HugeClaimsAreRefusedWithinAMemoryLimit) {
  if (kSanitized) {
    // The sanitizers reserve more address space than any limit allows.
    EXPECT_TRUE(allRefused());
    return;
  }
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const rlimit limit{std::size_t{1} << 30, std::size_t{1} << 30};
    ::setrlimit(RLIMIT_AS, &limit);
    ::_exit(allRefused() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFEXITED(status)) << "the decoder died under a 1 GiB limit";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "a bomb decoded to an image";
}

TEST(HostileImage, AnImageWithinTheBudgetStillDecodes) {
  const Image image = Image::fromData(png(2000, 1500, 1, 0, 1500, 250));
  EXPECT_EQ(image.pixelWidth(), 2000);
  EXPECT_EQ(image.pixelHeight(), 1500);
}

TEST(HostileImage, OutlandishSizesGiveNoImageOrTheFailureValue) {
  orvante::setLogSink([](std::string_view) {});
  Rig rig;
  TestSession session(rig.platform());
  const Image small(2, 2, Bytes(16, 255));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(session.scaleToSize(small, {nan, 10}).empty());
  EXPECT_TRUE(session.scaleToSize(small, {-5, 10}).empty());
  EXPECT_TRUE(session.scaleToSize(small, {1e12, 1e12}).empty());
  // No image scaled is an image without pixels, sent as such.
  EXPECT_EQ(session.sendImagebyFile(small, 0, 0, std::numeric_limits<std::int32_t>::max(),
                                    std::numeric_limits<std::int32_t>::max(), 128),
            1);
  // A tiny scale makes the size in points enormous.
  const Image dense(2, 2, Bytes(16, 255), 1e-300);
  EXPECT_THROW(session.CovertToBlackAndWhiteScale(dense, 0.5), std::bad_alloc);
}

TEST(HostileImage, OnlyTheFormatsLabelsComeInAreDecoded) {
  Bytes bmp = saved(3, 2, 0x000000ff, "bmp");
  EXPECT_EQ(Image::fromData(bmp).pixelWidth(), 3);
  const Bytes gif{'G', 'I', 'F', '8', '9', 'a', 1, 0, 1, 0, 0x80, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF,
                  ',', 0, 0, 0, 0, 1, 0, 1, 0, 0, 2, 2, 'D', 1, 0, ';'};
  EXPECT_EQ(Image::fromData(gif).pixelWidth(), 1);
  // A BMP whose pixels would start gigabytes past its end.
  bmp[10] = bmp[11] = bmp[12] = bmp[13] = 0xA5;
  EXPECT_TRUE(Image::fromData(bmp).empty());
  // The system decodes XPM too, but a label image never comes as one.
  const std::string xpm =
      "/* XPM */\nstatic char *x[] = {\"1 1 1 1\", \"a c #000000\", \"a\"};\n";
  EXPECT_TRUE(Image::fromData(viewOf(xpm)).empty());
}
