#include "link_streams.hpp"

#include <array>
#include <mutex>
#include <utility>

#include "descriptor_link.hpp"
#include "event_loop.hpp"

namespace orvante::transport {
namespace {

enum Side { kInput = 0, kOutput = 1 };

// A stream of the pair waits without a time limit, as a blocking one does.
Deadline never() {
  return Deadline::max();
}

// What both streams of a pair share: the link, each side's status,
// delegate and schedule. Events are delivered on the event loop.
class StreamsCore : public std::enable_shared_from_this<StreamsCore> {
 public:
  explicit StreamsCore(std::shared_ptr<Link> link) : link_(std::move(link)) {}

  ~StreamsCore() { link_->close(); }

  void attach(Side side, Stream* stream) {
    std::lock_guard lock(mutex_);
    sides_[side].stream = stream;
  }

  // The stream object is going away: it is closed and never called again.
  void detach(Side side) {
    std::lock_guard delivery(delivery_);
    close(side);
    std::lock_guard lock(mutex_);
    sides_[side].stream = nullptr;
    sides_[side].delegate = nullptr;
  }

  void setDelegate(Side side, StreamDelegate* delegate) {
    std::lock_guard delivery(delivery_);
    std::lock_guard lock(mutex_);
    sides_[side].delegate = delegate;
  }

  void setScheduled(Side side, bool scheduled) {
    std::lock_guard lock(mutex_);
    sides_[side].scheduled = scheduled;
  }

  StreamStatus status(Side side) const {
    std::lock_guard lock(mutex_);
    return sides_[side].status;
  }

  std::string error() const {
    const auto state = link_->state();
    if (state == LinkState::Failed || state == LinkState::Ended) return link_->failure();
    std::lock_guard lock(mutex_);
    return lateOpen_ ? "the link is closed" : std::string();
  }

  void open(Side side) {
    bool start = false;
    std::uint64_t event = stream_event::None;
    {
      std::lock_guard lock(mutex_);
      auto& state = sides_[side];
      if (state.status != StreamStatus::NotOpen) return;
      const auto now = link_->state();
      if (now == LinkState::Failed || now == LinkState::Ended || now == LinkState::Closed) {
        // A link that failed or ended before this side opened fails it too.
        state.status = StreamStatus::Error;
        lateOpen_ = now == LinkState::Closed;
        event = stream_event::ErrorOccurred;
      } else if (now == LinkState::Open) {
        state.status = StreamStatus::Open;
        event = stream_event::OpenCompleted;
      } else {
        state.status = StreamStatus::Opening;
      }
      start = !started_;
      started_ = true;
    }
    if (start) {
      link_->setListener([self = weak_from_this()](LinkEvent happened) {
        if (auto core = self.lock()) core->heard(happened);
      });
      link_->start();
    }
    if (event != stream_event::None) {
      later([side, event](StreamsCore& core) {
        core.deliver(side, event);
        if (event == stream_event::OpenCompleted && side == kOutput) core.announceSpace();
      });
    }
  }

  void close(Side side) {
    bool last = false;
    {
      std::lock_guard lock(mutex_);
      auto& state = sides_[side];
      if (state.status == StreamStatus::Closed) return;
      const bool wasOpen = state.status != StreamStatus::NotOpen;
      state.status = StreamStatus::Closed;
      const auto other = sides_[1 - side].status;
      last = wasOpen && (other == StreamStatus::Closed || other == StreamStatus::NotOpen);
    }
    if (last) link_->close();
  }

  bool hasBytesAvailable() {
    return status(kInput) == StreamStatus::Open && link_->available() > 0;
  }

  std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) {
    const auto current = status(kInput);
    if (current == StreamStatus::AtEnd) return 0;
    if (current != StreamStatus::Open) return -1;
    if (maxLength == 0) return 0;
    std::size_t got = 0;
    switch (link_->read({buffer, maxLength}, never(), got)) {
      case Wait::Done:
        return static_cast<std::int64_t>(got);
      case Wait::Ended:
        endOfStream();
        return 0;
      default:
        return -1;
    }
  }

  bool hasSpaceAvailable() { return status(kOutput) == StreamStatus::Open && link_->writable(); }

  std::int64_t write(const std::uint8_t* bytes, std::size_t length) {
    if (status(kOutput) != StreamStatus::Open) return -1;
    std::size_t taken = 0;
    if (length > 0 && link_->write({bytes, length}, never(), taken) != Wait::Done) return -1;
    {
      std::lock_guard lock(mutex_);
      spaceArmed_ = true;
    }
    // The space left after this write is announced on the loop.
    later([](StreamsCore& core) { core.announceSpace(); });
    return static_cast<std::int64_t>(taken);
  }

 private:
  struct SideState {
    Stream* stream = nullptr;
    StreamDelegate* delegate = nullptr;
    StreamStatus status = StreamStatus::NotOpen;
    bool scheduled = false;
  };

  // Runs on the event loop, if the pair is still there.
  template <class Task>
  void later(Task task) {
    EventLoop::instance().post([self = weak_from_this(), task = std::move(task)] {
      if (auto core = self.lock()) task(*core);
    });
  }

  // On the loop: what the link reported.
  void heard(LinkEvent event) {
    switch (event) {
      case LinkEvent::Opened:
        for (Side side : {kInput, kOutput}) {
          bool opened = false;
          {
            std::lock_guard lock(mutex_);
            if (sides_[side].status == StreamStatus::Opening) {
              sides_[side].status = StreamStatus::Open;
              opened = true;
            }
          }
          if (opened) deliver(side, stream_event::OpenCompleted);
        }
        if (link_->available() > 0) deliver(kInput, stream_event::HasBytesAvailable);
        announceSpace();
        return;
      case LinkEvent::Readable:
        if (link_->available() > 0) deliver(kInput, stream_event::HasBytesAvailable);
        return;
      case LinkEvent::Writable:
        announceSpace();
        return;
      case LinkEvent::Ended:
        // Bytes the printer sent before it closed are read first.
        if (link_->available() == 0)
          endOfStream();
        else
          deliver(kInput, stream_event::HasBytesAvailable);
        return;
      case LinkEvent::Failed:
        fail();
        return;
    }
  }

  void announceSpace() {
    {
      std::lock_guard lock(mutex_);
      if (!spaceArmed_ || sides_[kOutput].status != StreamStatus::Open) return;
    }
    if (!link_->writable()) return;
    {
      std::lock_guard lock(mutex_);
      spaceArmed_ = false;
    }
    deliver(kOutput, stream_event::HasSpaceAvailable);
  }

  // The printer ended the connection and every byte it sent was read: the
  // input reaches its end and the output can carry nothing more.
  void endOfStream() {
    bool input = false, output = false;
    {
      std::lock_guard lock(mutex_);
      if (endReported_) return;
      endReported_ = true;
      if (sides_[kInput].status == StreamStatus::Open) {
        sides_[kInput].status = StreamStatus::AtEnd;
        input = true;
      }
      if (sides_[kOutput].status == StreamStatus::Open) {
        sides_[kOutput].status = StreamStatus::Error;
        output = true;
      }
    }
    if (input) later([](StreamsCore& core) { core.deliver(kInput, stream_event::EndEncountered); });
    if (output)
      later([](StreamsCore& core) { core.deliver(kOutput, stream_event::ErrorOccurred); });
  }

  // Every open stream goes to the error status and hears of it.
  void fail() {
    std::array<bool, 2> failed{};
    {
      std::lock_guard lock(mutex_);
      for (Side side : {kInput, kOutput}) {
        auto& state = sides_[side];
        if (state.status == StreamStatus::NotOpen || state.status == StreamStatus::Closed ||
            state.status == StreamStatus::Error || state.status == StreamStatus::AtEnd) {
          continue;
        }
        state.status = StreamStatus::Error;
        failed[side] = true;
      }
    }
    for (Side side : {kInput, kOutput}) {
      if (failed[side]) deliver(side, stream_event::ErrorOccurred);
    }
  }

  // Delivers one event to the side's delegate, if the side still listens.
  void deliver(Side side, std::uint64_t event) {
    std::lock_guard delivery(delivery_);
    StreamDelegate* delegate = nullptr;
    Stream* stream = nullptr;
    {
      std::lock_guard lock(mutex_);
      const auto& state = sides_[side];
      if (!state.scheduled || !state.delegate || !state.stream) return;
      if (state.status == StreamStatus::Closed || state.status == StreamStatus::NotOpen) return;
      delegate = state.delegate;
      stream = state.stream;
    }
    delegate->stream(stream, event);
  }

  const std::shared_ptr<Link> link_;
  mutable std::mutex mutex_;       // the state below
  std::recursive_mutex delivery_;  // held while a delegate runs
  std::array<SideState, 2> sides_{};
  bool started_ = false;
  bool spaceArmed_ = true;
  bool endReported_ = false;
  bool lateOpen_ = false;
};

template <class Base, Side kSide>
class CoreStream : public Base {
 public:
  explicit CoreStream(std::shared_ptr<StreamsCore> core) : core_(std::move(core)) {
    core_->attach(kSide, this);
  }
  ~CoreStream() override { core_->detach(kSide); }

  void open() override { core_->open(kSide); }
  void close() override { core_->close(kSide); }
  StreamStatus streamStatus() const override { return core_->status(kSide); }
  std::string streamError() const override { return core_->error(); }
  void setDelegate(StreamDelegate* delegate) override { core_->setDelegate(kSide, delegate); }
  void scheduleInRunLoop() override { core_->setScheduled(kSide, true); }
  void removeFromRunLoop() override { core_->setScheduled(kSide, false); }

 protected:
  const std::shared_ptr<StreamsCore> core_;
};

class LinkInputStream final : public CoreStream<InputStream, kInput> {
 public:
  using CoreStream::CoreStream;
  bool hasBytesAvailable() override { return core_->hasBytesAvailable(); }
  std::int64_t read(std::uint8_t* buffer, std::size_t maxLength) override {
    return core_->read(buffer, maxLength);
  }
};

class LinkOutputStream final : public CoreStream<OutputStream, kOutput> {
 public:
  using CoreStream::CoreStream;
  bool hasSpaceAvailable() override { return core_->hasSpaceAvailable(); }
  std::int64_t write(const std::uint8_t* bytes, std::size_t length) override {
    return core_->write(bytes, length);
  }
};

}  // namespace

StreamPair linkStreams(std::shared_ptr<Link> link) {
  if (!link) return {};
  auto core = std::make_shared<StreamsCore>(std::move(link));
  return {std::make_shared<LinkInputStream>(core), std::make_shared<LinkOutputStream>(core)};
}

StreamPair connectSocketStreams(const std::string& host, int port) {
  if (host.empty() || port < 0 || port > 65535) return {};
  return linkStreams(tcpLink(host, port));
}

StreamPair adoptSocketStreams(int fd) {
  return linkStreams(descriptorLink(fd, DescriptorKind::Socket, "the socket"));
}

StreamPair adoptDeviceStreams(int fd) {
  return linkStreams(descriptorLink(fd, DescriptorKind::Device, "the device"));
}

StreamPair SocketStreamFactory::createPairWithSocketToHost(const std::string& host,
                                                           std::int32_t port) {
  return connectSocketStreams(host, port);
}

}  // namespace orvante::transport

namespace orvante {

StreamPair streamsOverSocket(int fd) {
  return transport::adoptSocketStreams(fd);
}

}  // namespace orvante
