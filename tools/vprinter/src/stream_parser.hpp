#pragma once
// Splits one connection's bytes into what the printer acts on: text lines,
// immediate commands (answered at once, even in the middle of a line),
// BITMAP and DOWNLOAD payloads, and compressed bitmap packets. It keeps
// its state between feeds, so any split of the bytes gives the same
// events, and it buffers at most one line or one bounded payload.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <orvante/bytes.hpp>

#include "command_line.hpp"
#include "lzss_extent.hpp"
#include "payload_buffer.hpp"
#include "payload_header.hpp"

namespace orvante::vprinter {

inline constexpr std::uint8_t kEscape = 0x1B;

// The compressed bitmap packet's header: "!S", then these four 16-bit
// little-endian fields, then six reserved bytes.
struct PacketHeader {
  int x = 0;
  int y = 0;
  int bytesPerRow = 0;
  int rows = 0;
  std::size_t rasterSize() const { return static_cast<std::size_t>(bytesPerRow) * rows; }
};

// What the parser found, and why something was dropped.
class ParserSink {
 public:
  virtual ~ParserSink() = default;
  // A complete line, its line end removed.
  virtual void line(std::string_view text) = 0;
  // '~' or ESC, '!', then `code`.
  virtual void immediate(std::uint8_t lead, std::uint8_t code) = 0;
  // Why a payload of this size cannot be kept (it is then skipped), or
  // the empty text when it can.
  virtual std::string refusePayload(std::string_view header, PayloadKind kind,
                                    std::size_t length) = 0;
  // A BITMAP or DOWNLOAD header line and its complete payload.
  virtual void payload(std::string_view header, PayloadKind kind, ByteView bytes) = 0;
  // A packet and its whole LZSS stream (which may still not decode).
  virtual void packet(const PacketHeader& header, ByteView stream) = 0;
  // Something not acted on: an over-long line, a payload skipped or cut
  // off. `what` names the command, `length` and `hash` describe the bytes
  // it took.
  virtual void dropped(std::string_view what, std::string_view reason, std::size_t length,
                       std::uint64_t hash) = 0;
};

struct ParserLimits {
  std::size_t maxLineBytes = 32 * 1024;
  std::size_t maxPacketRaster = 4 * 1024 * 1024;
  std::size_t maxPayloadBytes = 8 * 1024 * 1024;  // the most a payload may claim
};

// What the unfinished payloads of all of an engine's parsers hold
// together and the most they may hold, the chunks they share, and where a
// complete one is joined in one piece.
struct HeldPayloads {
  HeldPayloads(std::size_t limit, std::size_t largestPayload)
      : limit(limit), chunks(largestPayload) {}

  std::size_t limit;
  std::size_t bytes = 0;
  ChunkPool chunks;  // keeps a payload's worth of spare chunks
  Bytes whole;       // keeps the room of the largest payload joined
};

class StreamParser {
 public:
  StreamParser(ParserSink& sink, ParserLimits limits, HeldPayloads& held)
      : sink_(sink), limits_(limits), heldPayloads_(held), binary_(held.chunks) {}
  ~StreamParser() { release(); }
  StreamParser(const StreamParser&) = delete;
  StreamParser& operator=(const StreamParser&) = delete;

  void feed(ByteView bytes);
  // The bytes have ended (the connection closed).
  void finish();
  // Inside a payload or packet whose bytes have not all come.
  bool insidePayload() const {
    return mode_ == Mode::Payload || mode_ == Mode::PacketHeader || mode_ == Mode::PacketStream;
  }

 private:
  enum class Mode {
    Line,          // gathering a text line
    SkipLine,      // an over-long line, dropped up to its line end
    PacketHeader,  // the 14 bytes after "!S"
    PacketStream,  // the LZSS stream, until the raster is complete
    Payload,       // a BITMAP or DOWNLOAD payload
  };

  void lineByte(std::uint8_t byte);
  bool continuesHeld(std::uint8_t byte);
  bool startsHeld(std::uint8_t byte) const;
  void textByte(std::uint8_t byte);
  void endLine();
  void startPayload(PayloadKind kind, std::size_t length);
  std::size_t payloadBytes(ByteView bytes);
  std::size_t packetHeaderBytes(ByteView bytes);
  std::size_t packetStreamBytes(ByteView bytes);
  void endPayload();
  void endPacket();
  void takeBinary(ByteView bytes);
  void release();
  void backToLines();

  ParserSink& sink_;
  ParserLimits limits_;
  HeldPayloads& heldPayloads_;
  Mode mode_ = Mode::Line;

  std::string line_;
  std::string held_;          // the start of a possible immediate command
  bool inQuotes_ = false;     // inside a quoted argument of line_
  bool quoteOrEscape_ = false;  // line_ ends with \[" inside quotes: ] makes it \["]
  int commas_ = 0;            // unquoted commas in line_
  bool afterCr_ = false;      // an LF now ends nothing
  bool afterBinary_ = false;  // the line end that closes a payload is its own
  std::size_t skipped_ = 0;   // bytes of a line being skipped

  // The binary part in progress: payload or packet.
  std::string header_;
  PayloadKind kind_ = PayloadKind::Bitmap;
  std::size_t expected_ = 0;
  std::size_t received_ = 0;
  std::string refusal_;  // why the binary part is skipped, if it is
  PayloadBuffer binary_;  // grows as bytes come, never by the claim
  std::array<std::uint8_t, 14> packetFields_{};  // after "!S"
  std::uint64_t hash_ = 0;
  ::orvante::vprinter::PacketHeader packet_;
  LzssExtent extent_{0};
};

// FNV-1a over bytes, continued from `hash` (start with kHashStart).
inline constexpr std::uint64_t kHashStart = 0xcbf29ce484222325ull;
std::uint64_t hashBytes(std::uint64_t hash, ByteView bytes);

}  // namespace orvante::vprinter
