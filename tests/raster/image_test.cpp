// Decoding images from files and bytes.

#include <gtest/gtest.h>

#include <gdk-pixbuf/gdk-pixbuf.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include <orvante/image.hpp>

#include "saved_image.hpp"

using namespace orvante;

namespace {

// A 2 x 1 image (red, half-transparent blue) saved in a format.
Bytes encoded(const char* format) {
  GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, TRUE, 8, 2, 1);
  guchar* data = gdk_pixbuf_get_pixels(pixbuf);
  const guchar pixels[8] = {255, 0, 0, 255, 0, 0, 255, 128};
  std::copy(pixels, pixels + 8, data);
  return orvante::testing::savedAs(pixbuf, format);
}

}  // namespace

TEST(Image, PngDecodesToPremultipliedPixels) {
  const Image image = Image::fromData(encoded("png"));
  ASSERT_FALSE(image.empty());
  EXPECT_EQ(image.pixelWidth(), 2);
  EXPECT_EQ(image.pixelHeight(), 1);
  EXPECT_EQ(image.rgba(), (Bytes{255, 0, 0, 255, 0, 0, 128, 128}));
  EXPECT_EQ(image.size().width, 2);
}

TEST(Image, FilesDecodeLikeTheirBytes) {
  const auto path = std::filesystem::temp_directory_path() /
                    ("orvante-image-" + std::to_string(::getpid()) + ".png");
  const Bytes png = encoded("png");
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
  EXPECT_EQ(Image::fromFile(path).rgba(), Image::fromData(png).rgba());
  std::filesystem::remove(path);
}

TEST(Image, JpegDecodesOpaque) {
  const Image image = Image::fromData(encoded("jpeg"));
  ASSERT_FALSE(image.empty());
  EXPECT_EQ(image.pixelWidth(), 2);
  EXPECT_EQ(image.rgba()[3], 255);
}

TEST(Image, CorruptOrMissingDataGivesTheEmptyImage) {
  Bytes png = encoded("png");
  EXPECT_TRUE(Image::fromData(ByteView(png).first(png.size() / 2)).empty());
  png[20] ^= 0xFF;
  EXPECT_TRUE(Image::fromData(png).empty());
  EXPECT_TRUE(Image::fromData(bytesOf("not an image")).empty());
  EXPECT_TRUE(Image::fromData({}).empty());
  EXPECT_TRUE(Image::fromFile("/nonexistent/logo.png").empty());
  EXPECT_THROW(Image(2, 2, Bytes(3)), std::invalid_argument);
}

TEST(Image, ScaleGivesTheSizeInPoints) {
  const Image image(4, 6, Bytes(96, 0), 2);
  EXPECT_EQ(image.size().width, 2);
  EXPECT_EQ(image.size().height, 3);
  EXPECT_TRUE(Image::transparent(0, 5).empty());
}
