// What goes wrong: the printer's own conditions show as printer-state-reasons;
// bad documents and a printer that has gone away end their job with a
// reason, and the application goes on to print the next job.

#include "app_fixture.hpp"

namespace orvante::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

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

TEST_F(PrinterAppTest, AJobToAPrinterThatHasGoneAwayWaitsWithTheReasonAndCanBeCancelled) {
  printer.stop();
  const std::string job = submit(app.folder() / "label.png", "image/png");
  EXPECT_TRUE(jobShows(job, "Waiting for the printer: cannot reach the printer")) << jobState(job);
  EXPECT_THAT(jobState(job), HasSubstr("job-state (enum) = processing"));
  EXPECT_THAT(printerAttributes().output, HasSubstr("offline"));
  EXPECT_EQ(app.ipptool("label", "cancel-job.test", {{"job", job}}).status, 0);
  EXPECT_TRUE(jobShows(job, "job-state (enum) = canceled")) << jobState(job) << app.log();
  EXPECT_TRUE(app.running());

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

namespace orvante::testing {
namespace {

TEST_F(PrinterAppTest, APrinterLostMidJobIsWaitedForAndNoPageIsLost) {
  writeNumberedPdf(app.folder() / "sixty.pdf", 60);
  const std::string job = submit(app.folder() / "sixty.pdf", "application/pdf");
  ASSERT_TRUE(eventuallyTrue([&] { return labelCount() >= 10; })) << app.log();
  const int port = printer.port();
  printer.stop();
  EXPECT_TRUE(jobShows(job, "Waiting for the printer")) << jobState(job);
  EXPECT_THAT(jobState(job), HasSubstr("job-state (enum) = processing"));
  // The printer comes back on the same port and writes into the same folder.
  PrinterProcess back({"--listen", "127.0.0.1:" + std::to_string(port), "--out",
                       printer.labels().string()});
  EXPECT_TRUE(jobShows(job, "job-state (enum) = completed", 120)) << jobState(job) << app.log();
  const auto [all, distinct] = labelsAndDistinct(printer.labels());
  EXPECT_EQ(distinct, 60u);
  EXPECT_LE(all, 61u);
}

TEST_F(PrinterAppTest, PaperOutMidJobMakesItWaitAndGoOnWhenCleared) {
  writeNumberedPdf(app.folder() / "sixty.pdf", 60);
  const std::string job = submit(app.folder() / "sixty.pdf", "application/pdf");
  ASSERT_TRUE(eventuallyTrue([&] { return labelCount() >= 10; })) << app.log();
  printer.control("status 04\n");
  EXPECT_TRUE(jobShows(job, "Waiting for the printer: out of paper")) << jobState(job);
  EXPECT_THAT(printerAttributes().output, HasSubstr("media-empty"));
  const std::size_t waiting = labelCount();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(labelCount(), waiting) << "labels went on while out of paper";
  printer.control("status 00\n");
  EXPECT_TRUE(jobShows(job, "job-state (enum) = completed", 120)) << jobState(job) << app.log();
  const auto [all, distinct] = labelsAndDistinct(printer.labels());
  EXPECT_EQ(distinct, 60u);
  EXPECT_LE(all, 61u);
}

}  // namespace
}  // namespace orvante::testing

namespace orvante::testing {
namespace {

TEST(PrinterAppInstances, TwoApplicationsWithTheirOwnStateFilesAnswerTheirOwnSubCommands) {
  AppProcess first, second;
  ASSERT_EQ(first.command("add -d only-first -m orvante_203dpi -v socket://127.0.0.1:9").status, 0)
      << first.log();
  ASSERT_EQ(second.command("add -d only-second -m orvante_203dpi -v socket://127.0.0.1:9").status, 0)
      << second.log();
  const auto listedByFirst = first.command("printers").output;
  const auto listedBySecond = second.command("printers").output;
  EXPECT_THAT(listedByFirst, HasSubstr("only-first"));
  EXPECT_THAT(listedByFirst, Not(HasSubstr("only-second")));
  EXPECT_THAT(listedBySecond, HasSubstr("only-second"));
  EXPECT_THAT(listedBySecond, Not(HasSubstr("only-first")));
}

}  // namespace
}  // namespace orvante::testing
