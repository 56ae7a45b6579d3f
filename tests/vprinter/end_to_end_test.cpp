// The library's own session against the orvante-vprinter process: labels
// come out as PNG files, queries get their answers, status follows the
// control lines, and a connection can be made to drop.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cairo.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <orvante/orvante.hpp>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

bool eventually(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

// orvante-vprinter on a free port, in a folder of its own.
class PrinterProcess {
 public:
  explicit PrinterProcess(std::vector<std::string> extra = {}) {
    char folder[] = "/tmp/vprinter-test-XXXXXX";
    folder_ = mkdtemp(folder);
    int control[2];
    EXPECT_EQ(pipe2(control, O_CLOEXEC), 0);
    control_ = control[1];
    std::vector<std::string> args{VPRINTER_EXECUTABLE, "--listen", "127.0.0.1:0",
                                  "--port-file", (folder_ / "port").string(),
                                  "--out", (folder_ / "labels").string(),
                                  "--journal", (folder_ / "journal.jsonl").string()};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, control[0], STDIN_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, (folder_ / "stdout").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    EXPECT_EQ(posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(control[0]);
    EXPECT_TRUE(eventually([&] { return fs::exists(folder_ / "port"); }));
    port_ = std::stoi(readFile(folder_ / "port"));
  }

  ~PrinterProcess() {
    if (pid_ > 0) stop();
    close(control_);
    fs::remove_all(folder_);
  }

  int port() const { return port_; }
  fs::path labels() const { return folder_ / "labels"; }
  std::string printed() const { return readFile(folder_ / "stdout"); }
  std::string journal() const { return readFile(folder_ / "journal.jsonl"); }
  void control(const std::string& line) {
    ASSERT_EQ(write(control_, line.data(), line.size()), static_cast<ssize_t>(line.size()));
  }

  // SIGTERM; the exit status.
  int stop() {
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  fs::path folder_;
  pid_t pid_ = -1;
  int control_ = -1;
  int port_ = 0;
};

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
  ASSERT_TRUE(eventually([&] { return fs::exists(second); })) << printer.printed();
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
  const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(printer.port()));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  const std::string bytes = "CLS\r\nBAR 1,1,2,2\r\n";
  ASSERT_EQ(send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  char reply[16];
  EXPECT_EQ(recv(socket, reply, sizeof reply, 0), 0);  // closed by the printer
  close(socket);
  EXPECT_TRUE(eventually(
      [&] { return printer.journal().find("the connection closed inside a line") != std::string::npos; }))
      << printer.journal();
  EXPECT_EQ(printer.stop(), 0);
}

}  // namespace
