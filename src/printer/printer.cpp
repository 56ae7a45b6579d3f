// orvante::Printer over one link of the core: every wait has its deadline,
// and a close from any thread ends every wait at once.

#include <orvante/label.hpp>
#include <orvante/printer.hpp>

#include <charconv>
#include <cstdlib>
#include <utility>

#include <orvante/commands.hpp>
#include "../runtime/printer_links.hpp"

namespace orvante {
namespace {

namespace commands = orvante::commands;
using transport::Wait;
using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t kReadBlock = 4096;
// A reply longer than this is not a reply to a query.
constexpr std::size_t kLongestReply = 1 << 20;

// A request as a person reads it in an error message.
std::string visible(std::string_view request) {
  std::string text;
  for (char c : request) {
    if (c == '\x1B')
      text += "ESC";
    else if (c == '\r')
      text += "\\r";
    else if (c == '\n')
      text += "\\n";
    else
      text += c;
  }
  return text;
}

std::string milliseconds(Printer::Timeout timeout) {
  return std::to_string(timeout.count()) + " ms";
}

}  // namespace

std::string PrinterStatus::describe() const {
  if (ready()) return "ready";
  std::string words;
  auto add = [&](bool condition, const char* word) {
    if (!condition) return;
    if (!words.empty()) words += ", ";
    words += word;
  };
  add(headOpen(), "head open");
  add(paperJam(), "paper jam");
  add(outOfPaper(), "out of paper");
  add(outOfRibbon(), "out of ribbon");
  add(paused(), "paused");
  add(printing(), "printing");
  add(otherError(), "other error");
  if (words.empty()) words = "unknown condition 0x" + std::to_string(byte);
  return words;
}

struct Printer::Connection {
  explicit Connection(std::shared_ptr<transport::Link> opened) : link(std::move(opened)) {}
  ~Connection() { link->close(); }

  const std::shared_ptr<transport::Link> link;
  std::mutex operation;  // one operation at a time
  std::mutex settings;   // the two below
  Timeout stallTimeout = std::chrono::seconds(30);
  Progress progress;

  const std::string& where() const { return link->where(); }

  [[noreturn]] void closed() const { throw Error("the connection to " + where() + " was closed"); }

  // Why a wait that did not end in Done ended, as an Error.
  [[noreturn]] void stopped(Wait wait, const std::string& during) const {
    if (wait == Wait::Closed) closed();
    throw Error(during + ": " + link->failure());
  }

  void write(ByteView bytes) {
    Timeout stall;
    Progress report;
    {
      std::lock_guard lock(settings);
      stall = stallTimeout;
      report = progress;
    }
    std::size_t sent = 0;
    const Wait result = link->writeAll(
        bytes, stall,
        [&](std::size_t count) {
          if (report) report(count, bytes.size());
        },
        sent);
    if (result == Wait::Done) return;
    if (result == Wait::Deadline) {
      throw Error(sent < bytes.size()
                      ? where() + " took no bytes for " + milliseconds(stall) + " (" +
                            std::to_string(sent) + " of " + std::to_string(bytes.size()) + " sent)"
                      : where() + " did not acknowledge the last bytes within " +
                            milliseconds(stall));
    }
    stopped(result, "sending to " + where() + " failed after " + std::to_string(sent) + " of " +
                        std::to_string(bytes.size()) + " bytes");
  }

  // Bytes that came unasked (a late reply) belong to no query.
  void discardWaitingInput() {
    std::uint8_t block[kReadBlock];
    while (link->readSome(block) > 0) {
    }
  }

  // Sends the request and reads until `complete` accepts the reply.
  template <class Complete>
  Bytes ask(std::string_view request, Timeout timeout, Complete&& complete) {
    discardWaitingInput();
    write(viewOf(request));
    const auto deadline = SteadyClock::now() + timeout;
    Bytes reply;
    for (;;) {
      std::uint8_t block[kReadBlock];
      std::size_t got = 0;
      const Wait result = link->read(block, deadline, got);
      if (result == Wait::Deadline) {
        throw Error(where() + " did not answer " + visible(request) + " within " +
                    milliseconds(timeout) + (reply.empty() ? "" : " (the reply had no end)"));
      }
      if (result == Wait::Closed) closed();
      if (result != Wait::Done) {
        throw Error(where() + " closed the connection while answering " + visible(request));
      }
      reply.insert(reply.end(), block, block + got);
      if (complete(reply)) return reply;
      if (reply.size() > kLongestReply) {
        throw Error(where() + " answered " + visible(request) + " with more than 1 MiB and no end");
      }
    }
  }

  std::string askUntil(std::string_view request, std::string_view end, Timeout timeout) {
    const Bytes reply = ask(request, timeout, [&](const Bytes& bytes) {
      return textOf(bytes).find(end) != std::string::npos;
    });
    const std::string text = textOf(reply);
    return text.substr(0, text.find(end));
  }

  PrinterStatus askStatus(Timeout timeout) {
    const Bytes reply =
        ask(commands::kStatusQuery, timeout, [](const Bytes& bytes) { return !bytes.empty(); });
    return PrinterStatus{reply.front()};
  }
};

Printer::Printer(std::shared_ptr<Connection> connection) : connection_(std::move(connection)) {}

Printer::Printer(Printer&& other) noexcept : connection_(other.take()) {}

Printer& Printer::operator=(Printer&& other) noexcept {
  if (this == &other) return *this;
  auto incoming = other.take();
  std::shared_ptr<Connection> old;
  {
    std::lock_guard lock(mutex_);
    old = std::exchange(connection_, std::move(incoming));
  }
  if (old) old->link->close();
  return *this;
}

Printer::~Printer() {
  close();
}

std::shared_ptr<Printer::Connection> Printer::take() {
  std::lock_guard lock(mutex_);
  return std::move(connection_);
}

std::shared_ptr<Printer::Connection> Printer::connection() const {
  std::lock_guard lock(mutex_);
  if (!connection_) throw Error("the printer connection is closed");
  return connection_;
}

Printer Printer::open(std::string_view uri, Timeout timeout) {
  auto connection = std::make_shared<Connection>(runtime::linkTo(uri));
  const Wait result = connection->link->open(SteadyClock::now() + timeout);
  if (result == Wait::Deadline) {
    throw Error("no connection to " + connection->where() + " within " + milliseconds(timeout));
  }
  if (result != Wait::Done) {
    throw Error("cannot connect to " + connection->where() + ": " + connection->link->failure());
  }
  return Printer(std::move(connection));
}

void Printer::send(ByteView bytes) {
  const auto link = connection();
  std::lock_guard lock(link->operation);
  link->write(bytes);
}

void Printer::send(std::string_view text) {
  send(viewOf(text));
}

void Printer::print(const Label& label) {
  send(label.bytes());
}

PrinterStatus Printer::sendConfirmed(ByteView bytes, Timeout timeout) {
  const auto link = connection();
  std::lock_guard lock(link->operation);
  link->write(bytes);
  return link->askStatus(timeout);
}

PrinterStatus Printer::printConfirmed(const Label& label, Timeout timeout) {
  return sendConfirmed(label.bytes(), timeout);
}

void Printer::onProgress(Progress progress) {
  const auto link = connection();
  std::lock_guard lock(link->settings);
  link->progress = std::move(progress);
}

void Printer::setStallTimeout(Timeout timeout) {
  const auto link = connection();
  std::lock_guard lock(link->settings);
  link->stallTimeout = timeout;
}

std::string Printer::query(std::string_view request, std::string_view end, Timeout timeout) {
  const auto link = connection();
  std::lock_guard lock(link->operation);
  return link->askUntil(request, end, timeout);
}

std::string Printer::name(Timeout timeout) {
  return query(commands::kNameQuery, "\r", timeout);
}

std::string Printer::codePage(Timeout timeout) {
  return query(commands::kCodePageQuery, "\r", timeout);
}

double Printer::mileage(Timeout timeout) {
  const std::string text = query(commands::kMileageQuery, "\r", timeout);
  char* end = nullptr;
  const double km = std::strtod(text.c_str(), &end);
  if (text.empty() || end != text.c_str() + text.size()) {
    throw Error("the mileage reply \"" + text + "\" is not a number");
  }
  return km;
}

std::uint64_t Printer::freeMemory(Timeout timeout) {
  const std::string text = query(commands::kFreeMemoryQuery, "\r", timeout);
  std::uint64_t bytes = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), bytes);
  if (text.empty() || failure != std::errc() || end != text.data() + text.size()) {
    throw Error("the free memory reply \"" + text + "\" is not a number");
  }
  return bytes;
}

std::vector<std::string> Printer::files(Timeout timeout) {
  const std::string text = query(commands::kFilesQuery, "\x1A", timeout);
  std::vector<std::string> names;
  std::size_t start = 0;
  for (std::size_t at; (at = text.find('\r', start)) != std::string::npos; start = at + 1) {
    if (at > start) names.push_back(text.substr(start, at - start));
  }
  if (start < text.size()) names.push_back(text.substr(start));
  return names;
}

PrinterStatus Printer::status(Timeout timeout) {
  const auto link = connection();
  std::lock_guard lock(link->operation);
  return link->askStatus(timeout);
}

bool Printer::isOpen() const {
  std::lock_guard lock(mutex_);
  return connection_ && connection_->link->state() == transport::LinkState::Open;
}

void Printer::close() {
  // The connection itself goes with the last operation that holds it.
  if (const auto connection = take()) connection->link->close();
}

}  // namespace orvante
