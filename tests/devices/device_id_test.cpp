// The IEEE 1284 device ID a USB printer reports, and the name it gives.

#include <gtest/gtest.h>

#include "platform/linux/device_id.hpp"

using namespace orvante;
using namespace orvante::platform::linux_devices;

namespace {

// A reply as the driver fills its buffer: the length prefix (which counts
// itself), the text, then the rest of the buffer zeroed.
Bytes idReply(const std::string& text, int lengthAdjust = 0, std::size_t buffer = 64) {
  const int length = static_cast<int>(text.size()) + 2 + lengthAdjust;
  Bytes reply{static_cast<std::uint8_t>(length >> 8), static_cast<std::uint8_t>(length & 0xFF)};
  reply.insert(reply.end(), text.begin(), text.end());
  if (reply.size() < buffer) reply.resize(buffer, 0);
  return reply;
}

std::string nameOf(const std::string& text) {
  const auto fields = parseDeviceId(idReply(text));
  return fields ? printerNameOf(*fields) : "(no ID)";
}

}  // namespace

TEST(DeviceId, FieldsAreReadUpToTheLengthTheReplyGives) {
  const auto fields = parseDeviceId(idReply("MFG:Orvante Labs;MDL:OV-203 ;CMD:LABEL,RASTER;CLS:PRINTER;"));
  ASSERT_TRUE(fields);
  EXPECT_EQ(*fields, (std::map<std::string, std::string>{{"MFG", "Orvante Labs"},
                                                          {"MDL", "OV-203"},
                                                          {"CMD", "LABEL,RASTER"},
                                                          {"CLS", "PRINTER"}}));
  // Bytes past the length are not the ID, even when they look like it.
  Bytes longer = idReply("MFG:A;", 0, 0);
  const std::string tail = "MDL:B;";
  longer.insert(longer.end(), tail.begin(), tail.end());
  EXPECT_EQ(printerNameOf(*parseDeviceId(longer)), "A");
}

TEST(DeviceId, TheNameIsMakerAndModelOrWhichOfThemIsThere) {
  EXPECT_EQ(nameOf("MFG:Orvante Labs;MDL:OV-203;"), "Orvante Labs OV-203");
  EXPECT_EQ(nameOf("MANUFACTURER:Orvante Labs;MODEL:OV-203;"), "Orvante Labs OV-203");
  EXPECT_EQ(nameOf("CMD:LABEL;MDL:OV-203;"), "OV-203");
  EXPECT_EQ(nameOf("MFG:Orvante Labs;MDL:;"), "Orvante Labs");
  EXPECT_EQ(nameOf("CMD:LABEL;CLS:PRINTER;"), "");
  EXPECT_EQ(nameOf(""), "");
}

TEST(DeviceId, ALastFieldWithoutItsTerminatorCountsAndJunkIsSkipped) {
  EXPECT_EQ(nameOf("MFG:Orvante Labs;MDL:OV-203"), "Orvante Labs OV-203");
  EXPECT_EQ(nameOf(";;no colon here;:empty key;MDL:OV-203"), "OV-203");
  // A NUL inside the counted length ends the text.
  EXPECT_EQ(nameOf(std::string("MFG:A;\0MDL:B;", 13)), "A");
}

TEST(DeviceId, ABadLengthPrefixGivesNoId) {
  EXPECT_FALSE(parseDeviceId(Bytes{}));
  EXPECT_FALSE(parseDeviceId(Bytes{0x00}));
  EXPECT_FALSE(parseDeviceId(idReply("MFG:A;", -7)));          // a length of 1
  EXPECT_FALSE(parseDeviceId(Bytes{0x00, 0x00, 'M', 'F'}));    // a length of 0
  EXPECT_FALSE(parseDeviceId(idReply("MFG:A;", 100, 0)));      // longer than the reply
  EXPECT_FALSE(parseDeviceId(Bytes{0xFF, 0xFF, 'M', 'F', 'G'}));
  EXPECT_TRUE(parseDeviceId(Bytes{0x00, 0x02}));               // an empty ID
}
