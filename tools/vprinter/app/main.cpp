// orvante-vprinter: a label printer on the host. It takes what a label
// printer takes over TCP (and a pseudo-terminal), writes each printed
// label as a PNG, answers queries and journals every command.

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>

#include <orvante/vprinter/engine.hpp>

#include "event_loop.hpp"
#include "label_files.hpp"
#include "tcp_listener.hpp"

namespace {

using namespace orvante::vprinter;

struct CommandLineOptions {
  std::string listen = "127.0.0.1:9100";
  bool pty = false;
  int dpi = 203;
  std::string out = "labels";
  std::string name = Options{}.name;
  std::string journal;
  std::string status = "00";
  std::size_t dropAfter = 0;
  std::string portFile;
  double idleTimeout = 30;
  std::size_t maxUnread = LoopSettings{}.maxUnreadBytes;
};

// A journal that stays readable while the printer runs: its lines are
// flushed each time the printer waits for more to do.
class JournalFile {
 public:
  explicit JournalFile(const std::string& path) {
    if (path.empty()) return;
    if (path == "-") {
      target_ = &std::cerr;
      return;
    }
    file_.open(path, std::ios::trunc);
    if (!file_) throw std::runtime_error("cannot write the journal " + path);
    target_ = &file_;
  }
  void write(std::string_view line) {
    if (target_) *target_ << line << '\n';
  }
  void flush() {
    if (target_) target_->flush();
  }

 private:
  std::ofstream file_;
  std::ostream* target_ = nullptr;
};

int serve(const CommandLineOptions& given) {
  LabelFiles labels(given.out);
  JournalFile journal(given.journal);

  Options options;
  options.dpi = given.dpi;
  options.name = given.name;
  options.status = static_cast<std::uint8_t>(std::stoul(given.status, nullptr, 16));
  options.onPrinted = [&labels](const PrintedLabel& label) {
    std::string path = labels.write(label);
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    return path;
  };
  options.onJournal = [&journal](std::string_view line) { journal.write(line); };
  Engine engine(options);

  LoopSettings settings;
  const Endpoint endpoint = parseEndpoint(given.listen);
  settings.listener = listenOn(endpoint);
  settings.dropAfter = given.dropAfter;
  settings.maxUnreadBytes = given.maxUnread;
  settings.idleTimeout = std::chrono::milliseconds(std::llround(given.idleTimeout * 1000));
  settings.beforeWait = [&journal] { journal.flush(); };
  const int port = boundPort(settings.listener);
  std::string ptyPath;
  if (given.pty) {
    settings.pty = openPty();
    ptyPath = settings.pty->path;
  }
  EventLoop loop(engine, std::move(settings));

  std::printf("listening on %s:%d\n", endpoint.host.c_str(), port);
  if (given.pty) std::printf("pty %s\n", ptyPath.c_str());
  std::fflush(stdout);
  if (!given.portFile.empty()) {
    // Written whole under a temporary name, so a reader never sees half.
    const std::string partial = given.portFile + ".part";
    std::ofstream(partial) << port << '\n';
    std::rename(partial.c_str(), given.portFile.c_str());
  }
  loop.run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CommandLineOptions given;
  CLI::App app{"A label printer on the host: renders printed labels to PNG files, answers "
               "queries, journals every command."};
  app.add_option("--listen", given.listen, "HOST:PORT to listen on (port 0 picks a free one)")
      ->capture_default_str();
  app.add_flag("--pty", given.pty, "also serve a pseudo-terminal, a serial-link printer");
  app.add_option("--dpi", given.dpi, "print resolution")
      ->check(CLI::IsMember({203, 300}))
      ->capture_default_str();
  app.add_option("--out", given.out, "folder of the label PNGs")->capture_default_str();
  app.add_option("--name", given.name, "model name that ~!T reports")->capture_default_str();
  app.add_option("--journal", given.journal, "journal file, one JSON object a line (- for stderr)");
  app.add_option("--status", given.status, "status byte that ESC !? reports, in hex")
      ->check([](const std::string& text) {
        const bool hex = !text.empty() && text.size() <= 2 &&
                         text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
        return hex ? std::string() : std::string("a hex byte, as 04");
      })
      ->capture_default_str();
  app.add_option("--drop-after", given.dropAfter, "close each connection after N bytes (tests)");
  app.add_option("--port-file", given.portFile, "write the listening port to FILE");
  app.add_option("--idle-timeout", given.idleTimeout,
                 "close a connection silent this many seconds inside a payload (0: never)")
      ->check(CLI::Range(0.0, 86400.0))
      ->capture_default_str();
  app.add_option("--max-unread", given.maxUnread,
                 "drop a client that leaves more than BYTES of replies unread")
      ->check(CLI::PositiveNumber)
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    return serve(given);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "orvante-vprinter: %s\n", failure.what());
    return 1;
  }
}
