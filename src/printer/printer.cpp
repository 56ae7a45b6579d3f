// orvante::Printer over the same stream pair as the session's TCP link:
// its events wake the waits, and every wait has a deadline.

#include <orvante/label.hpp>
#include <orvante/printer.hpp>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <mutex>

#include <orvante/commands.hpp>
#include "../transport/ble_streams.hpp"
#include "../transport/link_signal.hpp"
#include "../transport/socket_streams.hpp"
#include "device_links.hpp"
#include "printer_uri.hpp"

namespace orvante {
namespace {

namespace commands = orvante::commands;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kWriteChunk = 64 * 1024;
constexpr std::size_t kReadBlock = 4096;
// A reply longer than this is not a reply to a query.
constexpr std::size_t kLongestReply = 1 << 20;

// A request as a person reads it in an error message.
std::string visible(std::string_view request) {
  std::string text;
  for (char c : request) {
    if (c == '\x1B') text += "ESC";
    else if (c == '\r') text += "\\r";
    else if (c == '\n') text += "\\n";
    else text += c;
  }
  return text;
}

// Wakes the connection's waits on every event of its streams.
class Listener final : public StreamDelegate {
 public:
  void stream(Stream*, std::uint64_t) override { signal.notify(); }
  transport::LinkSignal signal;
};

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
  std::string where;
  StreamPair streams;
  Listener listener;
  std::mutex mutex;  // one operation at a time
  Timeout stallTimeout = std::chrono::seconds(30);
  Progress progress;
  // The link acknowledges each write: a send ends once the last was.
  bool acknowledged = false;

  ~Connection() { shut(); }

  void shut() {
    for (const std::shared_ptr<Stream>& stream :
         {std::shared_ptr<Stream>(streams.input), std::shared_ptr<Stream>(streams.output)}) {
      if (!stream) continue;
      stream->setDelegate(nullptr);
      stream->close();
    }
    streams = {};
  }

  // Sleeps until `ready` holds or the deadline passes; false at the deadline.
  template <class Ready>
  bool waitUntil(Clock::time_point deadline, Ready&& ready) {
    for (;;) {
      const auto seen = listener.signal.generation();
      if (ready()) return true;
      if (!listener.signal.waitPastUntil(seen, deadline) && !ready()) return false;
    }
  }

  std::string failure() const {
    const std::string why = streams.output ? streams.output->streamError() : std::string();
    return why.empty() ? "the connection is closed" : why;
  }

  void requireOpen() const {
    if (!streams.output) throw Error("the connection to " + where + " is closed");
  }

  void write(ByteView bytes) {
    requireOpen();
    auto& output = *streams.output;
    std::size_t sent = 0;
    while (sent < bytes.size()) {
      const bool writable = waitUntil(Clock::now() + stallTimeout, [&] {
        return output.hasSpaceAvailable() || isFinished(output.streamStatus());
      });
      if (!writable) {
        throw Error(where + " took no bytes for " + std::to_string(stallTimeout.count()) + " ms (" +
                    std::to_string(sent) + " of " + std::to_string(bytes.size()) + " sent)");
      }
      if (isFinished(output.streamStatus())) {
        throw Error("sending to " + where + " failed after " + std::to_string(sent) + " of " +
                    std::to_string(bytes.size()) + " bytes: " + failure());
      }
      const std::size_t chunk = std::min(kWriteChunk, bytes.size() - sent);
      const auto count = output.write(bytes.data() + sent, chunk);
      if (count < 0) {
        throw Error("sending to " + where + " failed after " + std::to_string(sent) + " of " +
                    std::to_string(bytes.size()) + " bytes: " + failure());
      }
      sent += static_cast<std::size_t>(count);
      if (progress) progress(sent, bytes.size());
    }
    if (acknowledged) awaitAcknowledgment(bytes.size());
  }

  void awaitAcknowledgment(std::size_t total) {
    auto& output = *streams.output;
    const bool answered = waitUntil(Clock::now() + stallTimeout, [&] {
      return output.hasSpaceAvailable() || isFinished(output.streamStatus());
    });
    if (!answered) {
      throw Error(where + " did not acknowledge the last bytes within " +
                  std::to_string(stallTimeout.count()) + " ms");
    }
    if (isFinished(output.streamStatus())) {
      throw Error("sending to " + where + " failed at the last of " + std::to_string(total) +
                  " bytes: " + failure());
    }
  }

  // Bytes that came unasked (a late reply) belong to no query.
  void discardWaitingInput() {
    std::uint8_t block[kReadBlock];
    while (streams.input->hasBytesAvailable() && streams.input->read(block, sizeof block) > 0) {
    }
  }

  // Sends the request and reads until `complete` accepts the reply.
  template <class Complete>
  Bytes ask(std::string_view request, Timeout timeout, Complete&& complete) {
    requireOpen();
    discardWaitingInput();
    write(viewOf(request));
    const auto deadline = Clock::now() + timeout;
    auto& input = *streams.input;
    Bytes reply;
    for (;;) {
      const bool answered = waitUntil(deadline, [&] {
        return input.hasBytesAvailable() || input.streamStatus() != StreamStatus::Open;
      });
      if (!answered) {
        throw Error(where + " did not answer " + visible(request) + " within " +
                    std::to_string(timeout.count()) + " ms" +
                    (reply.empty() ? "" : " (the reply had no end)"));
      }
      std::uint8_t block[kReadBlock];
      const auto count = input.hasBytesAvailable() ? input.read(block, sizeof block) : -1;
      if (count <= 0) {
        throw Error(where + " closed the connection while answering " + visible(request));
      }
      reply.insert(reply.end(), block, block + count);
      if (complete(reply)) return reply;
      if (reply.size() > kLongestReply) {
        throw Error(where + " answered " + visible(request) + " with more than 1 MiB and no end");
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
};

Printer::Printer(std::unique_ptr<Connection> connection) : connection_(std::move(connection)) {}
Printer::Printer(Printer&&) noexcept = default;
Printer& Printer::operator=(Printer&&) noexcept = default;
Printer::~Printer() = default;

Printer Printer::open(std::string_view uri, Timeout timeout) {
  auto connection = std::make_unique<Connection>();
  if (const auto device = direct::parseDeviceUri(uri)) {
    connection->where = direct::describeDevice(*device);
    connection->streams = direct::openDeviceStreams(*device);
  } else if (const auto address = direct::parsePrinterUri(uri); address.scheme == "ble") {
    connection->where = "ble://" + address.host;
    connection->streams = transport::makeBleStreams(address.host);
    connection->acknowledged = true;
  } else {
    connection->where = address.host + ":" + std::to_string(address.port);
    connection->streams = transport::connectSocketStreams(address.host, address.port);
  }
  auto& streams = connection->streams;
  if (!streams.input || !streams.output) {
    throw Error("cannot connect to " + connection->where + ": out of descriptors or a bad address");
  }
  for (const std::shared_ptr<Stream>& stream :
       {std::shared_ptr<Stream>(streams.input), std::shared_ptr<Stream>(streams.output)}) {
    stream->setDelegate(&connection->listener);
    stream->scheduleInRunLoop();
    stream->open();
  }
  const bool settled = connection->waitUntil(Clock::now() + timeout, [&] {
    const auto status = streams.output->streamStatus();
    return status != StreamStatus::Opening && status != StreamStatus::NotOpen;
  });
  if (!settled) {
    throw Error("no connection to " + connection->where + " within " +
                std::to_string(timeout.count()) + " ms");
  }
  if (streams.output->streamStatus() != StreamStatus::Open) {
    throw Error("cannot connect to " + connection->where + ": " + connection->failure());
  }
  return Printer(std::move(connection));
}

Printer::Connection& Printer::connection() const {
  if (!connection_) throw Error("the printer connection is closed");
  return *connection_;
}

void Printer::send(ByteView bytes) {
  auto& link = connection();
  std::lock_guard lock(link.mutex);
  link.write(bytes);
}

void Printer::send(std::string_view text) {
  send(viewOf(text));
}

void Printer::print(const Label& label) {
  send(label.bytes());
}

void Printer::onProgress(Progress progress) {
  auto& link = connection();
  std::lock_guard lock(link.mutex);
  link.progress = std::move(progress);
}

void Printer::setStallTimeout(Timeout timeout) {
  auto& link = connection();
  std::lock_guard lock(link.mutex);
  link.stallTimeout = timeout;
}

std::string Printer::query(std::string_view request, std::string_view end, Timeout timeout) {
  auto& link = connection();
  std::lock_guard lock(link.mutex);
  return link.askUntil(request, end, timeout);
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
  auto& link = connection();
  std::lock_guard lock(link.mutex);
  const Bytes reply = link.ask(commands::kStatusQuery, timeout, [](const Bytes& bytes) { return !bytes.empty(); });
  return PrinterStatus{reply.front()};
}

bool Printer::isOpen() const {
  return connection_ && connection_->streams.output &&
         !isFinished(connection_->streams.output->streamStatus());
}

void Printer::close() {
  connection_.reset();
}

}  // namespace orvante
