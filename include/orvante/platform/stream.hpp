#pragma once
// The stream pair seam: an input and an output byte stream over one link,
// with the platform's status values and events delivered to a delegate on
// an event thread of the platform (the library's event loop for its own
// pairs).

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

enum class StreamStatus : std::uint64_t {
  NotOpen = 0,
  Opening = 1,
  Open = 2,
  Reading = 3,
  Writing = 4,
  AtEnd = 5,
  Closed = 6,
  Error = 7,
};

// A stream that can never carry bytes again.
inline bool isFinished(StreamStatus status) {
  return status == StreamStatus::Closed || status == StreamStatus::Error;
}

namespace stream_event {
inline constexpr std::uint64_t None = 0;
inline constexpr std::uint64_t OpenCompleted = 1;
inline constexpr std::uint64_t HasBytesAvailable = 2;
inline constexpr std::uint64_t HasSpaceAvailable = 4;
inline constexpr std::uint64_t ErrorOccurred = 8;
inline constexpr std::uint64_t EndEncountered = 16;
}  // namespace stream_event

class Stream;

class StreamDelegate {
 public:
  virtual ~StreamDelegate() = default;
  virtual void stream(Stream* stream, std::uint64_t eventCode) = 0;
};

class Stream {
 public:
  virtual ~Stream() = default;
  virtual void open() = 0;
  virtual void close() = 0;
  virtual StreamStatus streamStatus() const = 0;
  // Description of the error that put the stream in the error state; empty
  // when there is none.
  virtual std::string streamError() const = 0;
  // Events go to the delegate only while the stream is scheduled. Setting
  // the delegate waits until an event being delivered on another thread has
  // been handled, so a cleared delegate is never called again.
  virtual void setDelegate(StreamDelegate* delegate) = 0;
  virtual void scheduleInRunLoop() = 0;
  virtual void removeFromRunLoop() = 0;
};

class InputStream : public Stream {
 public:
  virtual bool hasBytesAvailable() = 0;
  // Reads up to maxLength bytes; 0 at the end of the stream, negative on
  // failure.
  virtual std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) = 0;
};

class OutputStream : public Stream {
 public:
  virtual bool hasSpaceAvailable() = 0;
  // Writes what the link takes of the bytes, waiting until it takes at least
  // one; returns the count written, negative on failure.
  virtual std::int64_t write(const std::uint8_t* bytes, std::size_t length) = 0;
};

struct StreamPair {
  std::shared_ptr<InputStream> input;
  std::shared_ptr<OutputStream> output;
};

// A pair neither of whose streams can carry bytes again (or that has none).
inline bool isDead(const StreamPair& pair) {
  const auto done = [](const auto& stream) { return !stream || isFinished(stream->streamStatus()); };
  return done(pair.input) && done(pair.output);
}

// A stream pair over a connected socket (one end of a socketpair, a
// Bluetooth serial channel, a TCP connection made elsewhere), whose events
// the library's event loop delivers. Takes the descriptor; both streams are
// null when no pair can be made.
StreamPair streamsOverSocket(int fd);

class StreamFactory {
 public:
  virtual ~StreamFactory() = default;
  // A stream pair to a host (name or address) and port; neither stream is
  // open yet. Both are null when no pair can be made for those arguments.
  virtual StreamPair createPairWithSocketToHost(const std::string& host, std::int32_t port) = 0;
};

}  // namespace orvante

ORVANTE_API_END
