#include "stream_parser.hpp"

#include <algorithm>
#include <array>
#include <utility>

namespace orvante::vprinter {

namespace {

constexpr std::size_t kPacketHeaderRest = 14;  // after "!S"
constexpr std::string_view kPacketName = "!S";
constexpr int kMostHeaderCommas = 5;  // BITMAP X,Y,WIDTHBYTES,HEIGHT,MODE,

template <typename Fields>
int little16(const Fields& bytes, std::size_t at) {
  return bytes[at] | (bytes[at + 1] << 8);
}

// ~! is followed by an upper-case letter or @; anything else is text.
bool tildeCode(std::uint8_t byte) { return (byte >= 'A' && byte <= 'Z') || byte == '@'; }

std::string_view payloadName(PayloadKind kind) {
  return kind == PayloadKind::Bitmap ? "BITMAP" : "DOWNLOAD";
}

}  // namespace

std::uint64_t hashBytes(std::uint64_t hash, ByteView bytes) {
  for (std::uint8_t byte : bytes) {
    hash ^= byte;
    hash *= 0x100000001b3ull;
  }
  return hash;
}

void StreamParser::feed(ByteView bytes) {
  std::size_t at = 0;
  while (at < bytes.size()) {
    switch (mode_) {
      case Mode::Line:
      case Mode::SkipLine:
        lineByte(bytes[at++]);
        break;
      case Mode::PacketHeader:
        at += packetHeaderBytes(bytes.subspan(at));
        break;
      case Mode::PacketStream:
        at += packetStreamBytes(bytes.subspan(at));
        break;
      case Mode::Payload:
        at += payloadBytes(bytes.subspan(at));
        break;
    }
  }
}

void StreamParser::finish() {
  // A payload refused earlier says why as well.
  const std::string reason = (refusal_.empty() ? "" : refusal_ + "; ") +
                             "the connection closed after " + std::to_string(received_) + " of " +
                             std::to_string(expected_) + " bytes";
  switch (mode_) {
    case Mode::Payload:
      sink_.dropped(payloadName(kind_), reason, received_, hash_);
      break;
    case Mode::PacketHeader:
    case Mode::PacketStream:
      sink_.dropped(kPacketName, "the connection closed inside the packet", received_, hash_);
      break;
    case Mode::Line:
    case Mode::SkipLine:
      if (!line_.empty() || mode_ == Mode::SkipLine) {
        sink_.dropped(leadingKeyword(line_), "the connection closed inside a line",
                      std::max(line_.size(), skipped_), hashBytes(kHashStart, viewOf(line_)));
      }
      break;
  }
  line_.clear();
  held_.clear();
  refusal_.clear();
  release();
  mode_ = Mode::Line;
  inQuotes_ = quoteOrEscape_ = afterCr_ = afterBinary_ = false;
  commas_ = 0;
  skipped_ = 0;
}

void StreamParser::lineByte(std::uint8_t byte) {
  if (afterBinary_) {
    afterBinary_ = false;
    if (byte == '\r') {
      afterCr_ = true;
      return;
    }
    if (byte == '\n') return;
  }
  if (afterCr_) {
    afterCr_ = false;
    if (byte == '\n') return;
  }
  if (!held_.empty()) {
    if (continuesHeld(byte)) return;
    const std::string held = std::exchange(held_, {});
    for (char c : held) textByte(static_cast<std::uint8_t>(c));
  }
  if (startsHeld(byte)) {
    held_.push_back(static_cast<char>(byte));
    return;
  }
  textByte(byte);
}

// An immediate command starts with ~ or ESC anywhere; a packet with ! at
// the start of a line.
bool StreamParser::startsHeld(std::uint8_t byte) const {
  return byte == '~' || byte == kEscape || (byte == '!' && mode_ == Mode::Line && line_.empty());
}

bool StreamParser::continuesHeld(std::uint8_t byte) {
  const auto lead = static_cast<std::uint8_t>(held_[0]);
  if (lead == '!') {
    if (byte != 'S') return false;
    held_.clear();
    mode_ = Mode::PacketHeader;
    received_ = 0;
    expected_ = kPacketHeaderRest;
    hash_ = hashBytes(kHashStart, viewOf(kPacketName));
    return true;
  }
  if (held_.size() == 1) {
    if (byte != '!') return false;
    held_.push_back('!');
    return true;
  }
  if (lead != kEscape && !tildeCode(byte)) return false;
  held_.clear();
  sink_.immediate(lead, byte);
  return true;
}

void StreamParser::textByte(std::uint8_t byte) {
  if (byte == '\r' || byte == '\n') {
    afterCr_ = byte == '\r';
    endLine();
    return;
  }
  if (mode_ == Mode::SkipLine) {
    ++skipped_;
    hash_ = hashBytes(hash_, ByteView(&byte, 1));
    return;
  }
  if (line_.size() >= limits_.maxLineBytes) {
    mode_ = Mode::SkipLine;
    hash_ = hashBytes(hashBytes(kHashStart, viewOf(line_)), ByteView(&byte, 1));
    skipped_ = line_.size() + 1;
    return;
  }
  if (quoteOrEscape_) {
    // The quote after \[ is the escape \["] only when ] follows it.
    quoteOrEscape_ = false;
    if (byte != ']') inQuotes_ = false;
  }
  line_.push_back(static_cast<char>(byte));
  if (byte == '"') {
    if (inQuotes_ && line_.ends_with("\\[\"")) {
      quoteOrEscape_ = true;
    } else {
      inQuotes_ = !inQuotes_;
    }
  } else if (byte == ',' && !inQuotes_ && ++commas_ <= kMostHeaderCommas) {
    // Only the first few commas can end a payload header; later ones
    // would make a long line cost its length squared.
    if (const auto header = payloadHeader(line_)) startPayload(header->kind, header->length);
  }
}

void StreamParser::endLine() {
  if (mode_ == Mode::SkipLine) {
    sink_.dropped(leadingKeyword(line_),
                  "line longer than " + std::to_string(limits_.maxLineBytes) + " bytes", skipped_,
                  hash_);
    mode_ = Mode::Line;
    skipped_ = 0;
  } else {
    sink_.line(line_);
  }
  line_.clear();
  inQuotes_ = quoteOrEscape_ = false;
  commas_ = 0;
}

void StreamParser::startPayload(PayloadKind kind, std::size_t length) {
  header_ = std::exchange(line_, {});
  inQuotes_ = quoteOrEscape_ = false;
  commas_ = 0;
  kind_ = kind;
  expected_ = length;
  received_ = 0;
  hash_ = kHashStart;
  if (length > limits_.maxPayloadBytes) {
    refusal_ = "a payload of " + std::to_string(length) + " bytes is more than the " +
               std::to_string(limits_.maxPayloadBytes) + " one may claim";
  } else {
    refusal_ = sink_.refusePayload(header_, kind, length);
  }
  mode_ = Mode::Payload;
  if (length == 0) endPayload();
}

// Keeps the bytes of a payload or packet stream as they come; one that
// would take all connections' unfinished payloads past their limit is
// dropped, and its further bytes only counted.
void StreamParser::takeBinary(ByteView bytes) {
  hash_ = hashBytes(hash_, bytes);
  received_ += bytes.size();
  if (!refusal_.empty()) return;
  if (heldPayloads_.bytes + bytes.size() > heldPayloads_.limit) {
    refusal_ = "unfinished payloads would hold more than " + std::to_string(heldPayloads_.limit) +
               " bytes: dropped";
    release();
    return;
  }
  binary_.append(bytes);
  heldPayloads_.bytes += bytes.size();
}

void StreamParser::release() {
  heldPayloads_.bytes -= binary_.size();
  binary_.clear();
}

std::size_t StreamParser::payloadBytes(ByteView bytes) {
  const std::size_t taken = std::min(bytes.size(), expected_ - received_);
  takeBinary(bytes.first(taken));
  if (received_ == expected_) endPayload();
  return taken;
}

void StreamParser::endPayload() {
  if (refusal_.empty()) {
    sink_.payload(header_, kind_, binary_.join(heldPayloads_.whole));
  } else {
    sink_.dropped(payloadName(kind_), refusal_, received_, hash_);
  }
  backToLines();
}

std::size_t StreamParser::packetHeaderBytes(ByteView bytes) {
  const std::size_t taken = std::min(bytes.size(), expected_ - received_);
  hash_ = hashBytes(hash_, bytes.first(taken));
  std::copy_n(bytes.begin(), taken, packetFields_.begin() + static_cast<std::ptrdiff_t>(received_));
  received_ += taken;
  if (received_ < expected_) return taken;

  packet_ = {little16(packetFields_, 0), little16(packetFields_, 2), little16(packetFields_, 4),
             little16(packetFields_, 6)};
  received_ = 0;
  expected_ = packet_.rasterSize();
  hash_ = kHashStart;
  refusal_.clear();
  if (expected_ > limits_.maxPacketRaster) {
    refusal_ = "a raster of " + std::to_string(expected_) + " bytes is larger than any label";
  }
  extent_ = LzssExtent(expected_);
  mode_ = Mode::PacketStream;
  if (extent_.ended()) endPacket();
  return taken;
}

std::size_t StreamParser::packetStreamBytes(ByteView bytes) {
  const std::size_t taken = extent_.take(bytes);
  takeBinary(bytes.first(taken));
  if (extent_.ended()) endPacket();
  return taken;
}

void StreamParser::endPacket() {
  if (refusal_.empty()) {
    sink_.packet(packet_, binary_.join(heldPayloads_.whole));
  } else {
    sink_.dropped(kPacketName, refusal_, received_, hash_);
  }
  backToLines();
}

void StreamParser::backToLines() {
  mode_ = Mode::Line;
  afterBinary_ = true;
  refusal_.clear();
  release();
}

}  // namespace orvante::vprinter
