// Every sending operation of the session, over a real TCP link, into the
// virtual printer's engine: each lands as a command the printer
// understands (no unknown line, no warning), and what prints has its dots
// where they must be.

#include <gtest/gtest.h>

#include <cairo-pdf.h>

#include <fstream>
#include <mutex>

#include <orvante/vprinter/engine.hpp>

#include "links.hpp"
#include "quiet_stdout.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

// The engine behind a loopback printer: what the session sends is fed to
// it, its replies go back on the link.
class EnginePrinter {
 public:
  EnginePrinter() : engine_(options()) {}

  orvante::testing::PrinterPeer::Responder responder() {
    return [this](orvante::testing::PrinterPeer& peer, ByteView fresh, ByteView) {
      Bytes replies;
      {
        std::lock_guard lock(mutex_);
        replies = engine_.feed(1, fresh);
      }
      if (!replies.empty()) peer.send(replies);
    };
  }
  std::vector<vprinter::PrintedLabel> printed() {
    std::lock_guard lock(mutex_);
    return engine_.takePrinted();
  }
  std::string journal() {
    std::lock_guard lock(mutex_);
    return journal_;
  }
  std::size_t count(const std::string& command) {
    const std::string key = "\"command\":\"" + command + "\"";
    const std::string text = journal();
    std::size_t found = 0;
    for (auto at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) ++found;
    return found;
  }

 private:
  vprinter::Options options() {
    vprinter::Options chosen;
    chosen.onJournal = [this](std::string_view line) {
      journal_ += line;
      journal_ += '\n';
    };
    return chosen;
  }

  std::mutex mutex_;
  std::string journal_;  // written under mutex_, from inside feed
  vprinter::Engine engine_;
};

Image square(int side) {
  Bytes rgba(static_cast<std::size_t>(side) * side * 4, 0);
  for (std::size_t i = 3; i < rgba.size(); i += 4) rgba[i] = 255;  // opaque black
  return Image(side, side, std::move(rgba));
}

std::string writeFile(const std::string& name, const Bytes& bytes) {
  const std::string path = ::testing::TempDir() + name;
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

std::string onePagePdf() {
  const std::string path = ::testing::TempDir() + "orvante-engine-page.pdf";
  cairo_surface_t* surface = cairo_pdf_surface_create(path.c_str(), 72, 72);
  cairo_t* cairo = cairo_create(surface);
  cairo_rectangle(cairo, 18, 18, 36, 36);
  cairo_fill(cairo);
  cairo_destroy(cairo);
  cairo_surface_destroy(surface);
  return path;
}

}  // namespace

TEST(SessionIntoEngine, EverySendingOperationIsUnderstood) {
  QuietStdout quiet;  // the encoder's published trace
  EnginePrinter printer;
  TcpRig tcp(0.25, printer.responder());
  auto& session = tcp.session;

  session.setup(50, 30, 4, 8, 0, 2, 0);
  session.setupForWidth(50, 30, 4, 8, 1, 3, 1, 0);
  session.setup(50, 30, 4, 8, 0, 2, 0);
  session.clearbuffer();
  session.clearBuffer(0);
  session.barcode(16, 16, "128", 60, 1, 0, 2, 2, "A-1");
  session.barcodeFromX(16, 120, "39", 40, 0, 0, 2, 4, "B2", 0);
  session.printerfont(200, 16, "3", 0, 1, 1, "utf8");
  session.printerfontFromX(200, 50, "2", 0, 1, 1, "later", 0);
  session.printerfont_GB2321(200, 80, "3", 0, 1, 1, "gb");
  session.printerfont_BIG5(200, 110, "3", 0, 1, 1, "big5");
  session.printerfont_UTF8(200, 140, "1", 0, 1, 1, "again");
  session.sendcommand("BAR 300,180,40,40\r\n");
  session.sendcommand_utf8("BOX 10,180,90,230,2\r\n");
  session.sendcommand_gb2312("REVERSE 0,0,8,8\r\n");
  session.sendcommand_big5("ERASE 0,0,8,8\r\n");
  session.sendcommandWithData(viewOf("DIRECTION 0\r\n"));
  session.printlabel(1, 1);

  session.clearbuffer();
  session.SendPic_NotPrint(square(40), 8, 8, 128);
  session.sendImagebyFile(square(20), 100, 8, 40, 40, 128);
  session.sendImagebyPath(writeFile("orvante-engine-square.png", {}), 200, 8, 16, 16, 128);
  session.windowsfont(8, 100, 32, 0, 2, 0, "DejaVu Sans", "Basil");
  session.windowsfontFromX(200, 100, 32, 90, 0, 0, "DejaVu Sans", "Sage", 0);
  session.printLabelWithNumberOfSets(1, 1, 0);
  session.SendPic(square(64), 40, 40);
  session.printPDFbyPath(onePagePdf(), 0, 0, 203);
  session.formfeed();
  session.formfeed(0);
  session.nobackfeed();
  session.nobackfeed(0);

  const Bytes font = pattern(3000);
  session.downloadData(font, "DATA.BIN");
  session.downloadttf(writeFile("orvante-engine.ttf", font), "FONT.TTF");
  session.downloadbmp(writeFile("orvante-engine.bmp", font), "LOGO.BMP");
  session.downloadpcx(writeFile("orvante-engine.pcx", font), "LOGO.PCX");
  // sendfile sends the file's own bytes: printer commands, run at once.
  session.sendfile(writeFile("orvante-engine.cmd", bytesOf("FORMFEED\r\n")), "IGNORED");
  const auto files = session.printer_files();
  ASSERT_TRUE(files);
  for (const char* name : {"DATA.BIN", "FONT.TTF", "LOGO.BMP", "LOGO.PCX"}) {
    EXPECT_NE(textOf(*files).find(name), std::string::npos) << name;
  }

  EXPECT_EQ(session.WiFi_SSID("Depot"), "1");
  session.WiFi_WPA("secret");
  session.WiFi_WEP(1, "ABCDE");
  session.WiFi_DHCP();
  session.WiFi_Port(9100);
  session.WiFi_StaticIP("10.0.0.9", "255.255.255.0", "10.0.0.1");
  session.WiFi_Default();
  EXPECT_FALSE(session.smartbattery_status(1).empty());
  session.rfidDetect();
  session.rfidWrite("EPC", 0, 2, 6, 1, "ABCDEF");
  session.rfidRead("EPC", 0, 2, 6, 1);
  EXPECT_TRUE(session.rfidGetReadData());
  EXPECT_TRUE(session.printer_name());
  EXPECT_TRUE(session.printer_codepage());
  EXPECT_TRUE(session.printer_mileage());
  EXPECT_TRUE(session.printer_freememory());
  EXPECT_TRUE(session.printerstatus());
  EXPECT_TRUE(session.sendcommand_getstring("DIAGNOSTIC INTERFACE NET\r\n"));
  session.closeport_withtime(0);
  ASSERT_TRUE(tcp.printer.connection()->waitForHangUp());

  const std::string journal = printer.journal();
  EXPECT_EQ(journal.find("\"outcome\":\"unknown\""), std::string::npos) << journal;
  EXPECT_EQ(journal.find("\"outcome\":\"warning\""), std::string::npos) << journal;
  for (const char* command : {"SIZE", "GAP", "BLINE", "CLS", "BARCODE", "TEXT", "BAR", "BOX",
                              "REVERSE", "ERASE", "DIRECTION", "PRINT", "!S", "BITMAP",
                              "FORMFEED", "SET", "DOWNLOAD", "WLAN", "DIAGNOSTIC", "RFIDDETECT",
                              "RFID"}) {
    EXPECT_GT(printer.count(command), 0u) << command;
  }

  // The labels: the layout, the pictures and text, SendPic's, the PDF page.
  const auto labels = printer.printed();
  ASSERT_EQ(labels.size(), 4u);
  EXPECT_TRUE(labels[0].printed(310, 190));   // the BAR
  EXPECT_GT(labels[0].printedIn(16, 16, 120, 76), 500u);  // the barcode's bars
  EXPECT_TRUE(labels[1].printed(20, 20));     // the 40-dot square at 8,8
  EXPECT_TRUE(labels[1].printed(110, 20));    // the scaled square at 100,8
  EXPECT_GT(labels[1].printedIn(8, 100, 120, 140), 100u);  // "Basil" in DejaVu Sans Bold
  EXPECT_TRUE(labels[2].printed(70, 70));     // SendPic's square at 40,40
  EXPECT_TRUE(labels[3].printed(101, 101));   // the PDF's box, 50..152 dots
  EXPECT_FALSE(labels[3].printed(30, 30));
}
