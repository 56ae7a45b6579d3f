#include <orvante/testing/recording.hpp>

#include <cstdio>
#include <sstream>

namespace orvante::testing {

void Timeline::add(Step step) {
  std::lock_guard lock(mutex_);
  steps_.push_back(std::move(step));
}

std::vector<Step> Timeline::steps() const {
  std::lock_guard lock(mutex_);
  return steps_;
}

std::string escaped(ByteView bytes) {
  std::string text;
  for (auto byte : bytes) {
    if (byte == '\r') {
      text += "\\r";
    } else if (byte == '\n') {
      text += "\\n";
    } else if (byte >= 0x20 && byte < 0x7F) {
      text += static_cast<char>(byte);
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", byte);
      text += hex;
    }
  }
  return text;
}

std::string show(ByteView bytes) {
  if (bytes.size() > 80) return std::to_string(bytes.size()) + " bytes";
  return "\"" + escaped(bytes) + "\"";
}

std::string Timeline::scriptOf(std::thread::id thread) const {
  std::ostringstream out;
  const char* separator = "";
  for (const auto& step : steps()) {
    if (step.thread != thread) continue;
    out << separator;
    separator = " | ";
    if (step.kind == Step::Kind::Pause) {
      out << "pause " << step.seconds;
    } else {
      out << "write " << show(step.bytes);
    }
  }
  return out.str();
}

std::vector<double> Timeline::pauses() const {
  std::vector<double> result;
  for (const auto& step : steps()) {
    if (step.kind == Step::Kind::Pause && step.thread == std::this_thread::get_id()) {
      result.push_back(step.seconds);
    }
  }
  return result;
}

std::vector<Bytes> Timeline::writes() const {
  std::vector<Bytes> result;
  for (const auto& step : steps()) {
    if (step.kind == Step::Kind::Write) result.push_back(step.bytes);
  }
  return result;
}

double Timeline::pausedFor() const {
  double total = 0;
  for (double seconds : pauses()) total += seconds;
  return total;
}

void Timeline::clear() {
  std::lock_guard lock(mutex_);
  steps_.clear();
}

void RecordingClock::sleepFor(double seconds) {
  std::function<void(double)> hook;
  {
    std::lock_guard lock(mutex_);
    hook = hook_;
  }
  if (hook) hook(seconds);
  timeline_->add({Step::Kind::Pause, seconds, {}, std::this_thread::get_id()});
  if (realFraction_ > 0) SystemClock().sleepFor(seconds * realFraction_);
}

void RecordingClock::onPause(std::function<void(double)> hook) {
  std::lock_guard lock(mutex_);
  hook_ = std::move(hook);
}

void EventGate::open() {
  {
    std::lock_guard lock(mutex_);
    open_ = true;
  }
  opened_.notify_all();
}

void EventGate::waitUntilOpen() {
  std::unique_lock lock(mutex_);
  opened_.wait(lock, [&] { return open_; });
}

namespace {

// The delegate a wrapped stream hands to the real one: events wait at the
// gate, then reach the delegate the session set.
class GatedDelegate final : public StreamDelegate {
 public:
  GatedDelegate(StreamDelegate* target, std::shared_ptr<EventGate> gate, Stream* wrapper)
      : target_(target), gate_(std::move(gate)), wrapper_(wrapper) {}
  void stream(Stream*, std::uint64_t eventCode) override {
    if (gate_) gate_->waitUntilOpen();
    target_->stream(wrapper_, eventCode);
  }

 private:
  StreamDelegate* target_;
  std::shared_ptr<EventGate> gate_;
  Stream* wrapper_;
};

// Forwards everything to the real stream.
template <class Base>
class Wrapped : public Base {
 public:
  Wrapped(std::shared_ptr<Base> inner, std::shared_ptr<EventGate> gate)
      : inner_(std::move(inner)), gate_(std::move(gate)) {}
  // The real stream may outlive its wrapper; it must not call the gated
  // delegate that goes with it.
  ~Wrapped() override {
    if (delegate_) inner_->setDelegate(nullptr);
  }
  void open() override { inner_->open(); }
  void close() override { inner_->close(); }
  StreamStatus streamStatus() const override { return inner_->streamStatus(); }
  std::string streamError() const override { return inner_->streamError(); }
  void setDelegate(StreamDelegate* delegate) override {
    auto next = delegate ? std::make_shared<GatedDelegate>(delegate, gate_, this) : nullptr;
    inner_->setDelegate(next.get());
    delegate_ = std::move(next);
  }
  void scheduleInRunLoop() override { inner_->scheduleInRunLoop(); }
  void removeFromRunLoop() override { inner_->removeFromRunLoop(); }

 protected:
  std::shared_ptr<Base> inner_;
  std::shared_ptr<EventGate> gate_;
  std::shared_ptr<GatedDelegate> delegate_;
};

class WrappedInput final : public Wrapped<InputStream> {
 public:
  using Wrapped::Wrapped;
  bool hasBytesAvailable() override { return inner_->hasBytesAvailable(); }
  std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
    return inner_->read(buffer, maxLength);
  }
};

// Writes are recorded before they go out.
class RecordingOutput final : public Wrapped<OutputStream> {
 public:
  RecordingOutput(std::shared_ptr<OutputStream> inner, std::shared_ptr<EventGate> gate,
                  std::shared_ptr<Timeline> timeline)
      : Wrapped(std::move(inner), std::move(gate)), timeline_(std::move(timeline)) {}
  bool hasSpaceAvailable() override { return inner_->hasSpaceAvailable(); }
  std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
    timeline_->add(
        {Step::Kind::Write, 0, Bytes(bytes, bytes + length), std::this_thread::get_id()});
    return inner_->write(bytes, length);
  }

 private:
  std::shared_ptr<Timeline> timeline_;
};

}  // namespace

StreamPair recordWrites(StreamPair streams, std::shared_ptr<Timeline> timeline,
                        std::shared_ptr<EventGate> gate) {
  if (streams.input) streams.input = std::make_shared<WrappedInput>(streams.input, gate);
  if (streams.output) {
    streams.output = std::make_shared<RecordingOutput>(streams.output, gate, std::move(timeline));
  }
  return streams;
}

void RecordingStreamFactory::holdEvents(std::shared_ptr<EventGate> gate) {
  std::lock_guard lock(mutex_);
  gate_ = std::move(gate);
}

StreamPair RecordingStreamFactory::createPairWithSocketToHost(const std::string& host,
                                                              std::int32_t port) {
  std::string target = host;
  std::int32_t targetPort = port;
  std::shared_ptr<EventGate> gate;
  {
    std::lock_guard lock(mutex_);
    gate = gate_;
    requests_.emplace_back(host, port);
    for (const auto& [from, toHost, toPort] : redirects_) {
      if (from == port) {
        target = toHost;
        targetPort = toPort;
      }
    }
  }
  return recordWrites(inner_->createPairWithSocketToHost(target, targetPort), timeline_, gate);
}

void RecordingStreamFactory::redirect(std::int32_t port, std::string host, std::int32_t to) {
  std::lock_guard lock(mutex_);
  redirects_.emplace_back(port, std::move(host), to);
}

std::vector<std::pair<std::string, std::int32_t>> RecordingStreamFactory::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

}  // namespace orvante::testing
