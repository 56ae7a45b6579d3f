// The engine: one parser per connection, one printer for all, and the
// journal entry of everything the parsers find.

#include <orvante/vprinter/engine.hpp>

#include <map>
#include <utility>

#include "commands.hpp"
#include "printer.hpp"
#include "render_error.hpp"
#include "stream_parser.hpp"

namespace orvante::vprinter {

namespace {

constexpr std::size_t kMaxJournalArgument = 256;

std::vector<std::string> journalArguments(const CommandLine& command) {
  std::vector<std::string> out;
  for (const auto& argument : command.arguments) {
    std::string text = argument.text.substr(0, kMaxJournalArgument);
    if (text.size() < argument.text.size()) text += "...";
    out.push_back(std::move(text));
  }
  return out;
}

}  // namespace

struct Engine::Impl {
  // Hears one connection's parser and carries out what it finds.
  class Connection final : public ParserSink {
   public:
    Connection(Impl& engine, ConnectionId id)
        : engine_(engine),
          id_(id),
          parser_(*this,
                  {engine.options.maxLineBytes, packetLimit(engine.options),
                   engine.options.maxPayloadBytes},
                  engine.heldPayloads) {}

    void feed(ByteView bytes) { parser_.feed(bytes); }
    void finish() { parser_.finish(); }
    bool insidePayload() const { return parser_.insidePayload(); }

    void line(std::string_view text) override { engine_.line(id_, text); }
    void immediate(std::uint8_t lead, std::uint8_t code) override {
      JournalEntry entry = engine_.entry(id_, "");
      entry.command = immediateCommand(engine_.printer, lead, code, entry);
      engine_.record(entry);
    }
    std::string refusePayload(std::string_view header, PayloadKind kind,
                              std::size_t length) override {
      return vprinter::refusePayload(engine_.printer, header, kind, length);
    }
    void payload(std::string_view header, PayloadKind kind, ByteView bytes) override {
      const CommandLine command = CommandLine::parse(header);
      JournalEntry entry = engine_.entry(id_, command.keyword);
      entry.arguments = journalArguments(command);
      entry.arguments.pop_back();  // the empty field after the header's last comma
      entry.payload = JournalEntry::Payload{bytes.size(), hashBytes(kHashStart, bytes)};
      engine_.run(entry, [&] {
        if (kind == PayloadKind::Bitmap) {
          drawBitmap(engine_.printer, command, bytes, entry);
        } else {
          storeFile(engine_.printer, command, bytes, entry);
        }
      });
    }
    void packet(const PacketHeader& header, ByteView stream) override {
      JournalEntry entry = engine_.entry(id_, "!S");
      entry.arguments = {std::to_string(header.x), std::to_string(header.y),
                         std::to_string(header.bytesPerRow), std::to_string(header.rows)};
      entry.payload = JournalEntry::Payload{stream.size(), hashBytes(kHashStart, stream)};
      engine_.run(entry, [&] { drawPacket(engine_.printer, header, stream, entry); });
    }
    void dropped(std::string_view what, std::string_view reason, std::size_t length,
                 std::uint64_t hash) override {
      JournalEntry entry = engine_.entry(id_, upperCase(what));
      entry.payload = JournalEntry::Payload{length, hash};
      entry.warn(std::string(reason));
      engine_.record(entry);
    }

   private:
    static std::size_t packetLimit(const Options& options) {
      return static_cast<std::size_t>(options.maxLabelWidthDots / 8 + 1) *
             static_cast<std::size_t>(options.maxLabelHeightDots);
    }

    Impl& engine_;
    ConnectionId id_;
    StreamParser parser_;
  };

  explicit Impl(Options given)
      : options(std::move(given)),
        printer(options),
        heldPayloads(options.maxHeldPayloadBytes, options.maxPayloadBytes) {}

  JournalEntry entry(ConnectionId connection, std::string command) {
    JournalEntry entry;
    entry.connection = connection;
    entry.command = std::move(command);
    return entry;
  }

  void record(const JournalEntry& entry) {
    if (!options.onJournal) return;
    const auto now = options.clock ? options.clock() : std::chrono::system_clock::now();
    options.onJournal(entry.json(now));
  }

  // Carries out a command; whatever it cannot do becomes a warning, and
  // the printer goes on with the next command.
  template <typename Action>
  void run(JournalEntry& entry, Action action) {
    try {
      action();
    } catch (const std::exception& failure) {
      entry.warn(failure.what());
    }
    record(entry);
  }

  void line(ConnectionId connection, std::string_view text) {
    const CommandLine command = CommandLine::parse(text);
    if (command.keyword.empty()) {
      // An empty line matters only when the RFID tag owes an answer.
      if (!printer.tagAnswerDue) return;
      JournalEntry entry = this->entry(connection, "");
      emptyLine(printer, entry);
      record(entry);
      return;
    }
    JournalEntry entry = this->entry(connection, command.keyword);
    entry.arguments = journalArguments(command);
    const auto& table = commandTable();
    const auto handler = table.find(command.keyword);
    if (handler == table.end()) {
      entry.outcome = Outcome::Unknown;
      record(entry);
      return;
    }
    run(entry, [&] { handler->second(printer, command, entry); });
  }

  Options options;
  Printer printer;
  HeldPayloads heldPayloads;  // outlives the connections' parsers
  std::map<ConnectionId, std::unique_ptr<Connection>> connections;
};

const CommandTable& commandTable() {
  static const CommandTable table = [] {
    CommandTable made;
    addLabelCommands(made);
    addDrawingCommands(made);
    addDeviceCommands(made);
    addPayloadCommands(made);
    return made;
  }();
  return table;
}

Engine::Engine(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Engine::~Engine() = default;

Bytes Engine::feed(ConnectionId connection, ByteView bytes) {
  auto& slot = impl_->connections[connection];
  if (!slot) slot = std::make_unique<Impl::Connection>(*impl_, connection);
  Bytes replies;
  impl_->printer.replyTo(&replies);
  slot->feed(bytes);
  impl_->printer.replyTo(nullptr);
  return replies;
}

void Engine::disconnect(ConnectionId connection) {
  const auto found = impl_->connections.find(connection);
  if (found == impl_->connections.end()) return;
  found->second->finish();
  impl_->connections.erase(found);
}

bool Engine::insidePayload(ConnectionId connection) const {
  const auto found = impl_->connections.find(connection);
  return found != impl_->connections.end() && found->second->insidePayload();
}

void Engine::warn(ConnectionId connection, std::string_view reason) {
  JournalEntry entry = impl_->entry(connection, "");
  entry.warn(std::string(reason));
  impl_->record(entry);
}

std::vector<PrintedLabel> Engine::takePrinted() { return std::exchange(impl_->printer.printed, {}); }

void Engine::setStatus(std::uint8_t status) { impl_->options.status = status; }

std::uint8_t Engine::status() const { return impl_->options.status; }

const Options& Engine::options() const { return impl_->options; }

}  // namespace orvante::vprinter
