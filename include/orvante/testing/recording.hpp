#pragma once
// Fakes of the clock and stream seams that record what a session did, in
// order: the pauses it took and the bytes it wrote, each with its thread.
// The recording clock and the recording streams write to one timeline, so
// the schedule reads as text: "pause 0.3 | write "~!T" | pause 0.4".

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>
#include <orvante/platform/clock.hpp>
#include <orvante/platform/stream.hpp>

ORVANTE_API_BEGIN

namespace orvante::testing {

struct Step {
  enum class Kind { Pause, Write } kind;
  double seconds = 0;
  Bytes bytes;
  std::thread::id thread;
};

class Timeline {
 public:
  void add(Step step);
  std::vector<Step> steps() const;
  // The steps of the calling thread (the caller's operations), as text.
  std::string script() const { return scriptOf(std::this_thread::get_id()); }
  std::string scriptOf(std::thread::id thread) const;
  std::vector<double> pauses() const;
  std::vector<Bytes> writes() const;
  double pausedFor() const;
  void clear();

 private:
  mutable std::mutex mutex_;
  std::vector<Step> steps_;
};

// Readable text of bytes in double quotes: printable ASCII as is, CR and LF
// escaped, other
// bytes as \xHH; long buffers as their size.
std::string show(ByteView bytes);
// The same text without the quotes, whatever the length.
std::string escaped(ByteView bytes);

// Records every pause on the timeline and sleeps the given fraction of it
// for real (0: not at all), so reply timing still works when needed.
class RecordingClock final : public Clock {
 public:
  explicit RecordingClock(std::shared_ptr<Timeline> timeline, double realFraction = 0)
      : timeline_(std::move(timeline)), realFraction_(realFraction) {}
  void sleepFor(double seconds) override;
  // Runs before each pause is recorded, on the pausing thread.
  void onPause(std::function<void(double)> hook);

 private:
  std::shared_ptr<Timeline> timeline_;
  double realFraction_;
  std::mutex mutex_;
  std::function<void(double)> hook_;
};

// Holds stream events back until opened, so a test can see a stream's state
// before its event is handled.
class EventGate {
 public:
  void open();
  void waitUntilOpen();

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool open_ = false;
};

// Wraps a stream pair so that every write lands on the timeline, and events
// pass the gate when there is one.
StreamPair recordWrites(StreamPair streams, std::shared_ptr<Timeline> timeline,
                        std::shared_ptr<EventGate> gate = nullptr);

class RecordingStreamFactory final : public StreamFactory {
 public:
  RecordingStreamFactory(std::shared_ptr<StreamFactory> inner, std::shared_ptr<Timeline> timeline)
      : inner_(std::move(inner)), timeline_(std::move(timeline)) {}
  StreamPair createPairWithSocketToHost(const std::string& host, std::int32_t port) override;
  // Sends every pair for this port to another host and port (a test's
  // printer in place of a fixed port).
  void redirect(std::int32_t port, std::string host, std::int32_t to);
  // Events of the pairs made from now on wait at this gate.
  void holdEvents(std::shared_ptr<EventGate> gate);
  // Every host and port asked for.
  std::vector<std::pair<std::string, std::int32_t>> requests() const;

 private:
  std::shared_ptr<StreamFactory> inner_;
  std::shared_ptr<Timeline> timeline_;
  mutable std::mutex mutex_;
  std::vector<std::pair<std::string, std::int32_t>> requests_;
  std::vector<std::tuple<std::int32_t, std::string, std::int32_t>> redirects_;
  std::shared_ptr<EventGate> gate_;
};

}  // namespace orvante::testing

ORVANTE_API_END
