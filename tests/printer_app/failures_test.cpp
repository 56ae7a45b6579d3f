// What goes wrong: the printer's own conditions show as printer-state-reasons;
// bad documents and a printer that has gone away end their job with a
// reason, and the application goes on to print the next job.

#include "app_fixture.hpp"

namespace orvante::testing {
namespace {

using ::testing::HasSubstr;

TEST_F(PrinterAppTest, OutOfPaperShowsAsMediaEmptyAndClearsAgain) {
  printer.control("status 04\n");
  EXPECT_TRUE(eventuallyTrue([&] {
    return printerAttributes().output.find("media-empty") != std::string::npos;
  })) << app.log();
  printer.control("status 00\n");
  EXPECT_TRUE(eventuallyTrue([&] {
    return printerAttributes().output.find("media-empty") == std::string::npos;
  })) << app.log();
}

TEST_F(PrinterAppTest, BadDocumentsAbortTheirJobAndTheNextJobPrints) {
  writeDamagedPdf(app.folder() / "damaged.pdf");
  writeHugePng(app.folder() / "huge.png");
  const std::pair<const char*, const char*> bad[] = {{"damaged.pdf", "application/pdf"},
                                                     {"huge.png", "image/png"}};
  for (const auto& [file, format] : bad) {
    SCOPED_TRACE(file);
    const auto job = print(app.folder() / file, format);
    // Refused at once, or taken and then aborted with a message saying why.
    if (job.output.find("job-state (enum)") != std::string::npos) {
      EXPECT_THAT(job.output, HasSubstr("job-state (enum) = aborted")) << job.output;
      EXPECT_THAT(job.output, HasSubstr("job-state-message")) << job.output;
    }
    EXPECT_TRUE(app.running());
  }
  EXPECT_EQ(labelCount(), 0u);
  const auto next = print(app.folder() / "label.png", "image/png");
  EXPECT_THAT(next.output, HasSubstr("job-state (enum) = completed")) << next.output << app.log();
  EXPECT_TRUE(eventuallyTrue([&] { return labelCount() == 1; }));
}

TEST_F(PrinterAppTest, AJobToAPrinterThatHasGoneAwayIsAbortedAndTheServerGoesOn) {
  printer.stop();
  const auto job = print(app.folder() / "label.png", "image/png");
  EXPECT_THAT(job.output, HasSubstr("job-state (enum) = aborted")) << job.output << app.log();
  EXPECT_THAT(job.output, HasSubstr("could not be reached")) << job.output;
  EXPECT_TRUE(app.running());
  EXPECT_THAT(printerAttributes().output, HasSubstr("printer-state (enum)"));

  // Another printer, reachable, still prints.
  PrinterProcess second;
  ASSERT_EQ(app.addPrinter("second", second.port()).status, 0);
  const auto next = app.ipptool("second", "print-and-wait.test",
                                {{"filename", (app.folder() / "label.png").string()},
                                 {"filetype", "image/png"}, {"copies", "1"}});
  EXPECT_THAT(next.output, HasSubstr("job-state (enum) = completed")) << next.output << app.log();
}

TEST_F(PrinterAppTest, EveryDarknessIsKeptAcrossRestartsZeroIncluded) {
  for (const int darkness : {0, 100, 47}) {
    SCOPED_TRACE(darkness);
    const auto set = app.ipptool("label", "set-darkness.test", {{"darkness", std::to_string(darkness)}});
    ASSERT_EQ(set.status, 0) << set.output;
    app.stop();
    app.start();
    EXPECT_THAT(printerAttributes().output,
                HasSubstr("printer-darkness-configured (integer) = " + std::to_string(darkness)))
        << app.log();
  }
}

}  // namespace
}  // namespace orvante::testing
