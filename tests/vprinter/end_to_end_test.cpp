// The library's own session against the orvante-vprinter process: labels
// come out as PNG files, queries get their answers, status follows the
// control lines, and a connection can be made to drop.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <poll.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cairo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <orvante/orvante.hpp>

#include "loopback_client.hpp"
#include "printer_process.hpp"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using orvante::testing::PrinterProcess;
using orvante::testing::eventuallyTrue;
using orvante::testing::readFile;
using orvante::vprinter::testing::connectTo;

// The colour of a dot of a PNG, 0 black.
std::uint32_t pngDot(const fs::path& path, int x, int y) {
  cairo_surface_t* surface = cairo_image_surface_create_from_png(path.c_str());
  EXPECT_EQ(cairo_surface_status(surface), CAIRO_STATUS_SUCCESS);
  const unsigned char* row =
      cairo_image_surface_get_data(surface) + y * cairo_image_surface_get_stride(surface);
  const std::uint32_t dot = reinterpret_cast<const std::uint32_t*>(row)[x] & 0xFFFFFF;
  cairo_surface_destroy(surface);
  return dot;
}

TEST(EndToEnd, LibrarySessionPrintsLabelsAndGetsItsAnswers) {
  PrinterProcess printer;
  orvante::setLogSink([](std::string_view) {});
  {
    ORVANTESDK session;
    ASSERT_EQ(session.openport_ethernet("127.0.0.1", printer.port()), 1);
    session.setup(50, 30, 4, 8, 0, 2, 0);
    session.clearbuffer();
    session.printerfont(24, 24, "3", 0, 1, 1, "END TO END");
    session.barcode(24, 80, "128", 80, 1, 0, 2, 2, "SHIP-000421");
    session.printlabel(1, 1);
    EXPECT_EQ(session.printer_name(), orvante::bytesOf("ORVANTE VP-1\r"));
    EXPECT_EQ(session.printerstatus(), orvante::Bytes{0x00});

    // An image: the compressed packet, then PRINT 1.
    orvante::Bytes black(40 * 20 * 4, 0);
    for (std::size_t i = 3; i < black.size(); i += 4) black[i] = 255;
    session.SendPic(orvante::Image(40, 20, black), 100, 150);

    printer.control("status 04\n");
    std::this_thread::sleep_for(200ms);
    EXPECT_EQ(session.printerstatus(), orvante::Bytes{0x04});
    EXPECT_EQ(session.smartbattery_status(1).substr(0, 2), "81");
    session.closeport();
  }
  orvante::setLogSink(nullptr);

  const fs::path second = printer.labels() / "label-0002.png";
  ASSERT_TRUE(eventuallyTrue([&] { return fs::exists(second); })) << printer.printed();
  EXPECT_EQ(printer.printed(), "listening on 127.0.0.1:" + std::to_string(printer.port()) + "\n" +
                                   (printer.labels() / "label-0001.png").string() + "\n" +
                                   second.string() + "\n");
  EXPECT_EQ(pngDot(second, 120, 160), 0x000000u);
  EXPECT_EQ(pngDot(second, 99, 160), 0xFFFFFFu);
  EXPECT_EQ(pngDot(printer.labels() / "label-0001.png", 99, 160), 0xFFFFFFu);
  EXPECT_EQ(printer.stop(), 0);
  const std::string journal = printer.journal();
  EXPECT_NE(journal.find("\"command\":\"BARCODE\",\"arguments\":[\"24\",\"80\",\"128\""),
            std::string::npos);
  EXPECT_NE(journal.find("\"command\":\"!S\",\"arguments\":[\"100\",\"150\",\"5\",\"20\"]"),
            std::string::npos);
  EXPECT_EQ(journal.find("warning"), std::string::npos) << journal;
}

TEST(EndToEnd, ConnectionDropsAfterTheBytesAsked) {
  PrinterProcess printer({"--drop-after", "10"});
  const int socket = connectTo(printer.port());
  const std::string bytes = "CLS\r\nBAR 1,1,2,2\r\n";
  ASSERT_EQ(send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  char reply[16];
  EXPECT_EQ(recv(socket, reply, sizeof reply, 0), 0);  // closed by the printer
  close(socket);
  EXPECT_TRUE(eventuallyTrue(
      [&] { return printer.journal().find("the connection closed inside a line") != std::string::npos; }))
      << printer.journal();
  EXPECT_EQ(printer.stop(), 0);
}

TEST(EndToEnd, LabelsOfAnEarlierRunInTheFolderStay) {
  char made[] = "/tmp/vprinter-labels-XXXXXX";
  const fs::path folder = mkdtemp(made);
  for (const char* name : {"label-0002.png", "label-0007.png", "label-x.png", "notes.txt"}) {
    std::ofstream(folder / name) << "earlier";
  }
  {
    PrinterProcess printer({"--out", folder.string()});
    const int socket = connectTo(printer.port());
    const std::string label = "SIZE 10 mm,10 mm\r\nCLS\r\nPRINT 1\r\n";
    ASSERT_EQ(send(socket, label.data(), label.size(), MSG_NOSIGNAL), static_cast<ssize_t>(label.size()));
    EXPECT_TRUE(eventuallyTrue([&] { return fs::exists(folder / "label-0008.png"); }))
        << printer.printed();
    close(socket);
  }
  EXPECT_EQ(readFile(folder / "label-0007.png"), "earlier");
  fs::remove_all(folder);
}

}  // namespace

TEST(EndToEnd, APseudoTerminalIsASerialPrinter) {
  PrinterProcess printer({"--pty"});
  std::string path;
  ASSERT_TRUE(eventuallyTrue([&] {
    const std::string out = printer.printed();
    const auto at = out.find("pty ");
    if (at == std::string::npos || out.find('\n', at) == std::string::npos) return false;
    path = out.substr(at + 4, out.find('\n', at) - at - 4);
    return true;
  }));
  const int serial = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(serial, 0) << path;
  termios raw{};
  ASSERT_EQ(tcgetattr(serial, &raw), 0);
  cfmakeraw(&raw);
  ASSERT_EQ(tcsetattr(serial, TCSANOW, &raw), 0);
  const std::string label = "SIZE 20 mm,10 mm\r\nCLS\r\nBAR 8,8,40,20\r\nPRINT 1\r\n~!T";
  ASSERT_EQ(::write(serial, label.data(), label.size()), static_cast<ssize_t>(label.size()));
  // The name query is answered on the same line.
  std::string reply;
  ASSERT_TRUE(eventuallyTrue([&] {
    char buffer[64];
    pollfd ready{serial, POLLIN, 0};
    if (::poll(&ready, 1, 10) == 1) {
      const auto count = ::read(serial, buffer, sizeof buffer);
      if (count > 0) reply.append(buffer, static_cast<std::size_t>(count));
    }
    return reply == "ORVANTE VP-1\r";
  })) << reply;
  ASSERT_TRUE(eventuallyTrue([&] { return fs::exists(printer.labels() / "label-0001.png"); }));
  EXPECT_EQ(pngDot(printer.labels() / "label-0001.png", 20, 20), 0u);
  ::close(serial);
}
