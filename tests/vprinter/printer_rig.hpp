#pragma once
// An engine under test with its journal captured and a fixed clock, and
// the byte streams the tests feed it.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <orvante/lzss.hpp>
#include <orvante/vprinter/engine.hpp>

namespace orvante::vprinter::testing {

struct PrinterRig {
  explicit PrinterRig(Options options = {}) : engine(withJournal(std::move(options), journal)) {}

  // Feeds text (or bytes) on a connection and returns the replies as text.
  std::string feed(std::string_view bytes, ConnectionId connection = 1) {
    return textOf(engine.feed(connection, viewOf(bytes)));
  }
  std::string feed(const Bytes& bytes, ConnectionId connection = 1) {
    return textOf(engine.feed(connection, bytes));
  }

  PrintedLabel printOne() {
    feed("PRINT 1\r\n");
    auto labels = engine.takePrinted();
    EXPECT_EQ(labels.size(), 1u);
    return labels.empty() ? PrintedLabel() : labels.front();
  }

  // The journal line of the last command, and whether any line holds text.
  std::string last() const { return journal.empty() ? "" : journal.back(); }
  bool journaled(const std::string& text) const {
    for (const auto& line : journal) {
      if (line.find(text) != std::string::npos) return true;
    }
    return false;
  }

  std::vector<std::string> journal;
  Engine engine;

 private:
  static Options withJournal(Options options, std::vector<std::string>& journal) {
    options.onJournal = [&journal](std::string_view line) { journal.emplace_back(line); };
    options.clock = [] { return std::chrono::system_clock::time_point(std::chrono::hours(480000)); };
    return options;
  }
};

// A raster of bytesPerRow x rows, all blank but the dots `ink` says.
template <typename Ink>
Bytes raster(int bytesPerRow, int rows, Ink ink) {
  Bytes bytes(static_cast<std::size_t>(bytesPerRow) * rows, 0xFF);
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < bytesPerRow * 8; ++x) {
      if (ink(x, y)) bytes[y * bytesPerRow + x / 8] &= static_cast<std::uint8_t>(~(0x80 >> (x % 8)));
    }
  }
  return bytes;
}

// The compressed bitmap packet, as the library sends it.
inline Bytes packet(int x, int y, int bytesPerRow, int rows, const Bytes& raster) {
  Bytes out{'!', 'S'};
  for (int field : {x, y, bytesPerRow, rows}) {
    out.push_back(static_cast<std::uint8_t>(field & 0xFF));
    out.push_back(static_cast<std::uint8_t>(field >> 8));
  }
  out.resize(16, 0);
  const Bytes stream = lzss::encode(raster);
  out.insert(out.end(), stream.begin(), stream.end());
  return out;
}

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes operator+(Bytes left, std::string_view right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes operator+(std::string_view left, const Bytes& right) {
  Bytes out = bytesOf(left);
  out.insert(out.end(), right.begin(), right.end());
  return out;
}

}  // namespace orvante::vprinter::testing
