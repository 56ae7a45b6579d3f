// File download: a file or bytes stored in the printer under a name, framed
// as DOWNLOAD F,"NAME",SIZE, then the bytes, then CR LF. Large payloads on
// the TCP and accessory links go out in 50000-byte chunks, 2 s apart.

#include <cstdio>
#include <fstream>

#include <orvante/commands.hpp>
#include "../commands/text_encoding.hpp"
#include "internals.hpp"
#include "session_ops.hpp"

using orvante::Bytes;
using orvante::ByteView;
using orvante::Encoding;

namespace {

constexpr std::size_t kChunk = 50000;
constexpr double kChunkPause = 2.0;
constexpr double kFinalPause = 0.5;

// The whole file, read once; none when it cannot be read.
std::optional<Bytes> readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) return std::nullopt;
  const auto size = file.tellg();
  if (size < 0) return std::nullopt;
  Bytes bytes(static_cast<std::size_t>(size));
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(bytes.data()), size)) return std::nullopt;
  return bytes;
}

Bytes header(const std::string& name, std::size_t size) {
  return orvante::encode(orvante::commands::downloadHeader(name, size, orvante::commands::Placement::AsGiven), Encoding::Big5Hkscs);
}

const Bytes kLineEnd = orvante::bytesOf("\r\n");

}  // namespace

// Below one chunk the file goes in one piece; from one chunk up every chunk
// waits 2 s and is announced on standard output, and an exact multiple of
// the chunk size ends with one more, empty, chunk.
void SessionOps::sendInChunks(ORVANTESDK& s, ByteView file) {
  if (file.size() < kChunk) {
    s._printWithStream(s.oStream.load(), file);
    return;
  }
  for (std::size_t offset = 0; offset <= file.size(); offset += kChunk) {
    s.pause(kChunkPause);
    std::fputs("size > max size\n", stdout);
    std::fflush(stdout);
    s._printWithStream(s.oStream.load(),
                       file.subspan(offset, std::min(kChunk, file.size() - offset)));
  }
}

std::int64_t ORVANTESDK::downloadpcx(const std::string& path, const std::string& name) {
  try {
    const auto file = readFile(path);
    if (!file) return -1;
    const Bytes head = header(name, file->size());
    // The header goes out before any link is tested; the output path sends
    // it on TCP and the accessory link only.
    _printWithStream(oStream.load(), head);
    switch (SessionOps::currentLink(*this)) {
      case Link::Tcp:
      case Link::Accessory:
        SessionOps::sendInChunks(*this, *file);
        _printWithStream(oStream.load(), kLineEnd);
        pause(kFinalPause);
        return 1;
      case Link::Ble:
        BLE_OutStream(head);
        BLE_OutStream(*file);
        BLE_OutStream(kLineEnd);
        return 1;
      case Link::None:
        break;
    }
    return -1;
  } catch (const std::exception&) {
    return -1;
  }
}

std::int64_t ORVANTESDK::downloadbmp(const std::string& path, const std::string& name) {
  return downloadpcx(path, name);
}

std::int64_t ORVANTESDK::downloadttf(const std::string& path, const std::string& name) {
  return downloadpcx(path, name);
}

std::int64_t ORVANTESDK::downloadData(ByteView data, const std::string& name) {
  const Bytes head = header(name, data.size());
  switch (SessionOps::currentLink(*this)) {
    case Link::Tcp:
      // The header takes the output path; the bytes and the line end are
      // single direct writes, as raw bytes are on TCP.
      _printWithStream(oStream.load(), head);
      sendcommandWithData(data);
      sendcommandWithData(kLineEnd);
      return 1;
    case Link::Accessory:
    case Link::Ble:
      sendcommandWithData(head);
      sendcommandWithData(data);
      sendcommand("\r\n");
      return 1;
    case Link::None:
      break;
  }
  return -1;
}

std::int64_t ORVANTESDK::sendfile(const std::string& path, const std::string&) {
  const auto file = readFile(path);
  if (!file) return -1;
  switch (SessionOps::currentLink(*this)) {
    case Link::Tcp:
    case Link::Accessory:
      SessionOps::sendInChunks(*this, *file);
      return 1;
    case Link::Ble:
      sendcommandWithData(*file);
      return 1;
    case Link::None:
      break;
  }
  return -1;
}
