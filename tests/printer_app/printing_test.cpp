// Documents sent over IPP come out of the virtual printer as labels of the
// right size with their content in place.

#include "app_fixture.hpp"

namespace orvante::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

TEST_F(PrinterAppTest, PrintsEachDocumentFormatAsOneLabel) {
  const std::pair<const char*, const char*> documents[] = {
      {"label.png", "image/png"}, {"label.pdf", "application/pdf"}, {"label.pwg", "image/pwg-raster"}};
  int number = 0;
  for (const auto& [file, format] : documents) {
    SCOPED_TRACE(format);
    const auto job = print(app.folder() / file, format);
    EXPECT_EQ(job.status, 0) << job.output << app.log();
    EXPECT_THAT(job.output, HasSubstr("job-state (enum) = completed"));
    ++number;
    ASSERT_TRUE(eventuallyTrue([&] { return labelCount() >= static_cast<std::size_t>(number); }))
        << printer.journal();
    expectSquareLabel(label(number));
  }
  EXPECT_EQ(labelCount(), 3u);
}

TEST_F(PrinterAppTest, SendsTheSetupLinesThenTheBitmapThenThePrintLineWithCopies) {
  const auto job = print(app.folder() / "label.png", "image/png", 2);
  EXPECT_THAT(job.output, HasSubstr("job-state (enum) = completed")) << job.output << app.log();
  ASSERT_TRUE(eventuallyTrue([&] { return labelCount() >= 2; })) << printer.journal();
  const std::string journal = printer.journal();
  auto at = [&](const std::string& command) {
    return journal.find("\"command\":\"" + command + "\"");
  };
  const std::size_t order[] = {at("SIZE"), at("GAP"), at("SPEED"), at("DENSITY"), at("CLS"),
                               at("!S"), at("PRINT")};
  ASSERT_NE(order[6], std::string::npos) << journal;
  for (std::size_t i = 1; i < std::size(order); ++i) EXPECT_LT(order[i - 1], order[i]) << i;
  // One page, two copies: one print line asking for both.
  EXPECT_NE(journal.find("\"command\":\"PRINT\",\"arguments\":[\"1\",\"2\"]"), std::string::npos)
      << journal;
  EXPECT_EQ(journal.find("\"command\":\"PRINT\"", order[6] + 1), std::string::npos) << journal;
  EXPECT_EQ(labelCount(), 2u);
}

TEST_F(PrinterAppTest, ASmallerPdfPageIsCentredOnTheLabelAndALargerOneShrunkOntoIt) {
  // 50 x 30 mm and 8 x 12 in, wholly black, onto the 4 x 6 in label.
  writeBlackPdf(app.folder() / "small.pdf", 50 / 25.4 * 72, 30 / 25.4 * 72);
  writeBlackPdf(app.folder() / "large.pdf", 8 * 72, 12 * 72);
  for (const char* file : {"small.pdf", "large.pdf"}) {
    const auto job = print(app.folder() / file, "application/pdf");
    EXPECT_THAT(job.output, HasSubstr("job-state (enum) = completed")) << job.output << app.log();
  }
  ASSERT_TRUE(eventuallyTrue([&] { return labelCount() >= 2; })) << printer.journal();
  const PrintedLabel small = label(1);
  const int middleX = small.width / 2, middleY = small.height / 2;
  // 400 x 240 dots in the middle: dark inside, light outside.
  EXPECT_TRUE(small.dark(middleX - 190, middleY - 110));
  EXPECT_TRUE(small.dark(middleX + 190, middleY + 110));
  EXPECT_FALSE(small.dark(middleX - 210, middleY));
  EXPECT_FALSE(small.dark(middleX, middleY + 130));
  EXPECT_FALSE(small.dark(10, 10));
  const PrintedLabel large = label(2);
  EXPECT_TRUE(large.dark(5, 5));
  EXPECT_TRUE(large.dark(large.width - 5, large.height - 5));
  // An image of 400 x 240 pixels at 203 dpi is centred too.
  writeBlackPng(app.folder() / "small.png", 400, 240);
  const auto job = print(app.folder() / "small.png", "image/png");
  EXPECT_THAT(job.output, HasSubstr("job-state (enum) = completed")) << job.output << app.log();
  ASSERT_TRUE(eventuallyTrue([&] { return labelCount() >= 3; })) << printer.journal();
  const PrintedLabel image = label(3);
  EXPECT_TRUE(image.dark(middleX, middleY));
  EXPECT_FALSE(image.dark(10, 10));
}

TEST_F(PrinterAppTest, OffersThePdfFormatAndTheDitheringChoices) {
  const auto attributes = printerAttributes();
  EXPECT_THAT(attributes.output, HasSubstr("application/pdf"));
  EXPECT_THAT(attributes.output, HasSubstr("floyd-steinberg"));
  EXPECT_THAT(attributes.output, HasSubstr("atkinson"));
  EXPECT_THAT(attributes.output, Not(HasSubstr("media-empty")));
}

}  // namespace
}  // namespace orvante::testing

namespace orvante::testing {
namespace {

// The pty path the virtual printer serves, from its first lines.
std::string ptyOf(const PrinterProcess& printer) {
  const std::string printed = printer.printed();
  const auto at = printed.find("pty ");
  if (at == std::string::npos) return {};
  return printed.substr(at + 4, printed.find('\n', at) - at - 4);
}

TEST_F(PrinterAppTest, APrinterOnASerialLinePrintsThroughItsDevice) {
  PrinterProcess serial({"--pty"});
  const std::string pty = ptyOf(serial);
  ASSERT_FALSE(pty.empty()) << serial.printed();
  const auto added =
      app.command("add -d serial -m orvante_203dpi -v serial://" + pty + "?baud=115200");
  ASSERT_EQ(added.status, 0) << added.output << app.log();
  const auto job = app.ipptool("serial", "print-and-wait.test",
                               {{"filename", (app.folder() / "label.png").string()},
                                {"filetype", "image/png"}, {"copies", "1"}});
  EXPECT_THAT(job.output, HasSubstr("job-state (enum) = completed")) << job.output << app.log();
  EXPECT_TRUE(eventuallyTrue([&] { return fs::exists(serial.labels() / "label-0001.png"); }))
      << app.log();
  // A serial device that is not there makes its job wait, with the reason.
  ASSERT_EQ(app.command("add -d gone -m orvante_203dpi -v serial:///dev/orvante-none").status, 0);
  const std::string lost = submit(app.folder() / "label.png", "image/png", "gone");
  EXPECT_TRUE(jobShows(lost, "cannot open /dev/orvante-none: No such file or directory", 30, "gone"))
      << jobState(lost, "gone");
  EXPECT_EQ(app.ipptool("gone", "cancel-job.test", {{"job", lost}}).status, 0);
}

}  // namespace
}  // namespace orvante::testing
