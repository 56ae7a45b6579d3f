// The orvante tool as a user runs it: its exit status, what it prints on
// standard output and standard error, and what the printer receives.

#include <cairo-pdf.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <orvante/label.hpp>

#include "links.hpp"
#include "printer_process.hpp"
#include "tool_run.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

void writeTwoPagePdf(const std::string& path) {
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), 142, 71);
  cairo_t* cairo = cairo_create(surface);
  for (double x : {10.0, 60.0}) {
    cairo_rectangle(cairo, x, 10, 40, 40);
    cairo_fill(cairo);
    cairo_show_page(cairo);
  }
  cairo_destroy(cairo);
  cairo_surface_destroy(surface);
}

std::string at(const LoopbackPrinter& printer) {
  return "--printer tcp://127.0.0.1:" + std::to_string(printer.port());
}

}  // namespace

TEST(Cli, HelpListsEverySubcommand) {
  const ToolRun help = runTool("--help");
  EXPECT_EQ(help.status, 0);
  for (const char* command :
       {"label", "image", "send", "query", "download", "wifi", "battery", "batch"}) {
    EXPECT_NE(help.out.find(command), std::string::npos) << command;
  }
  EXPECT_EQ(runTool("query --help").status, 0);
  const ToolRun wrong = runTool("query colour");
  EXPECT_EQ(wrong.status, 2);
  EXPECT_TRUE(wrong.err.starts_with("orvante: what: colour not in")) << wrong.err;
  EXPECT_EQ(runTool("").status, 2);
}

TEST(Cli, ScanWithoutBluetoothSaysSoAndListsWhatElseItFinds) {
  const ToolRun scan =
      runTool("scan --seconds 0", "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/orvante-bus");
  EXPECT_TRUE(scan.err.starts_with(
      "orvante: no Bluetooth adapter (or no system bus): no BLE printers scanned\n"))
      << scan.err;
  // USB printers of this machine, if it has any, are still listed.
  if (scan.out.empty()) {
    EXPECT_EQ(scan.status, 1);
    EXPECT_TRUE(scan.err.ends_with("orvante: no printer found\n")) << scan.err;
  } else {
    EXPECT_EQ(scan.status, 0);
    EXPECT_TRUE(scan.out.starts_with("usb://")) << scan.out;
  }
  EXPECT_EQ(runTool("scan --seconds -1").status, 2);
}

TEST(Cli, ALabelGoesToThePrinterByteExact) {
  LoopbackPrinter printer;
  const ToolRun run = runTool(at(printer) +
                          " label --size 50x30 --text '24,24,3,Hello, world' "
                          "--barcode 24,80,128,80,SHIP-1 --copies 2");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "");
  Label expected;
  expected.size(50, 30).gap(2).clear().text(24, 24, "3", "Hello, world");
  expected.barcode(24, 80, "128", "SHIP-1", 80).print(1, 2);
  ASSERT_TRUE(printer.connection()->waitForHangUp());
  EXPECT_EQ(printer.received(), expected.bytes());
}

TEST(Cli, QueriesPrintTheirResultAlone) {
  LoopbackPrinter printer(answering({{"~!T", "VP-203\r"},
                                     {"~!F", "LOGO.BMP\rFONT.TTF\r\x1A"},
                                     {"\x1B!?", std::string(1, '\x14')}}));
  const ToolRun name = runTool("query name", "ORVANTE_PRINTER=tcp://127.0.0.1:" +
                                             std::to_string(printer.port()));
  EXPECT_EQ(name.status, 0) << name.err;
  EXPECT_EQ(name.out, "VP-203\n");
  EXPECT_EQ(name.err, "");
  EXPECT_EQ(runTool(at(printer) + " query files").out, "LOGO.BMP\nFONT.TTF\n");
  EXPECT_EQ(runTool(at(printer) + " query status").out, "out of paper, paused (0x14)\n");
}

TEST(Cli, FailuresAreOneLineOnStandardError) {
  const std::string nowhere = "--printer tcp://127.0.0.1:" + std::to_string(refusedPort());
  const ToolRun refused = runTool(nowhere + " query name");
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err, "orvante: cannot connect to 127.0.0.1:" +
                             nowhere.substr(nowhere.rfind(':') + 1) + ": Connection refused\n");
  const ToolRun unreadable = runTool(nowhere + " image /nonexistent/logo.png");
  EXPECT_EQ(unreadable.status, 1);
  EXPECT_EQ(unreadable.err, "orvante: cannot read an image from /nonexistent/logo.png\n");
  LoopbackPrinter silent;
  const ToolRun unanswered = runTool(at(silent) + " --timeout 200 query mileage");
  EXPECT_EQ(unanswered.status, 1);
  EXPECT_EQ(unanswered.err, "orvante: 127.0.0.1:" + std::to_string(silent.port()) +
                                " did not answer ~!@ within 200 ms\n");
  const ToolRun badSize = runTool(nowhere + " label --size 0x30 -o -");
  EXPECT_EQ(badSize.status, 1);
  EXPECT_EQ(badSize.err, "orvante: the label width must be a number above 0, not 0.000000\n");
}

TEST(Cli, DownloadsAndRawCommandsArriveAsSent) {
  LoopbackPrinter printer;
  const std::string file = ::testing::TempDir() + "orvante-cli-font.ttf";
  const Bytes font = pattern(5000);
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(font.data()), static_cast<std::streamsize>(font.size()));
  EXPECT_EQ(runTool(at(printer) + " download " + file + " --as FONT.TTF").status, 0);
  ASSERT_TRUE(printer.connection(0)->waitForHangUp());
  EXPECT_EQ(printer.connection(0)->received(), Label().download("FONT.TTF", font).bytes());
  EXPECT_EQ(runTool(at(printer) + " send 'SET TEAR ON'").status, 0);
  ASSERT_TRUE(printer.connection(1)->waitForHangUp());
  EXPECT_EQ(textOf(printer.connection(1)->received()), "SET TEAR ON\r\n");
  // A file where the command line goes is sent, not its name.
  EXPECT_EQ(runTool(at(printer) + " send " + file).status, 0);
  ASSERT_TRUE(printer.connection(2)->waitForHangUp());
  EXPECT_EQ(printer.connection(2)->received(), font);
  EXPECT_EQ(runTool(at(printer) + " wifi --ssid Depot --wpa 's3cret pass' --dhcp").status, 0);
  ASSERT_TRUE(printer.connection(3)->waitForHangUp());
  EXPECT_EQ(textOf(printer.connection(3)->received()),
            "WLAN SSID \"Depot\"\r\nWLAN WPA \"s3cret pass\"\r\nWLAN DHCP\r\n");
}

TEST(Cli, EveryKindOfLabelComesOutOfTheVirtualPrinter) {
  PrinterProcess vprinter;
  const std::string printerOption = "--printer tcp://127.0.0.1:" + std::to_string(vprinter.port());
  const std::string pdf = ::testing::TempDir() + "orvante-cli-slip.pdf";
  writeTwoPagePdf(pdf);
  EXPECT_EQ(runTool(printerOption + " label --size 50x30 --text '24,24,3,Hello' "
                                    "--barcode 24,80,128,80,SHIP-1")
                .status,
            0);
  const ToolRun text = runTool(printerOption + " text 'Fresh 羅勒' --size 50x20 --height 40");
  EXPECT_EQ(text.status, 0) << text.err;
  const ToolRun pages = runTool(printerOption + " pdf " + pdf + " --size 51x26");
  EXPECT_EQ(pages.status, 0) << pages.err;
  vprinter.control("status 04\n");
  EXPECT_TRUE(eventuallyTrue([&] {
    return runTool(printerOption + " query status").out == "out of paper (0x04)\n";
  }));
  EXPECT_EQ(runTool(printerOption + " query name").out, "ORVANTE VP-1\n");
  // The label, the text and the PDF's two pages.
  EXPECT_TRUE(eventuallyTrue([&] { return fs::exists(vprinter.labels() / "label-0004.png"); }))
      << vprinter.printed();
  EXPECT_EQ(vprinter.journal().find("\"warning\""), std::string::npos) << vprinter.journal();
}

TEST(Cli, UsersTextPrintsAsGivenOrIsRefusedWithTheReason) {
  const ToolRun quoted = runTool("label -t '10,10,3,say \"hi\"' -o -");
  EXPECT_EQ(quoted.status, 0) << quoted.err;
  EXPECT_NE(quoted.out.find("TEXT 10, 10, \"3\", 0, 1, 1, \"say \\[\"]hi\\[\"]\"\r\n"),
            std::string::npos)
      << quoted.out;
  const ToolRun command = runTool("label -t \"$(printf '10,10,3,A\"\\r\\nKILL \"*\"')\" -o -");
  EXPECT_EQ(command.status, 1);
  EXPECT_EQ(command.out, "");
  EXPECT_EQ(command.err,
            "orvante: the content holds a carriage return at position 3: a command line cannot "
            "carry it\n");
  const ToolRun type = runTool("label -b '10,10,128\",50,X' -o -");
  EXPECT_EQ(type.status, 1);
  EXPECT_NE(type.err.find("barcode type"), std::string::npos) << type.err;
}
