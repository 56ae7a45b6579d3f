#include <orvante/testing/simulated_printer.hpp>
#include <orvante/testing/simulation.hpp>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>

namespace orvante::testing {

struct SimulatedPrinter::End final : SimulatedEnd {
  Bytes take(std::uint64_t connection, ByteView bytes) override {
    Bytes answer;
    std::lock_guard lock(mutex);
    // Immediate commands may come split over two writes: the last two bytes
    // of each connection are kept.
    std::string& tail = tails[connection];
    for (const std::uint8_t byte : bytes) {
      received.push_back(byte);
      const bool tilde = tail.size() == 2 && tail[0] == '~' && tail[1] == '!';
      const bool escape = tail.size() == 2 && tail[0] == '\x1B' && tail[1] == '!';
      if (escape && byte == '?') answer.push_back(status);
      if (tilde) {
        std::string reply;
        switch (byte) {
          case 'T':
            reply = name + "\r";
            break;
          case 'I':
            reply = "437\r";
            break;
          case '@':
            reply = "0.0\r";
            break;
          case 'A':
            reply = "6291456\r";
            break;
          case 'F':
            reply = "\x1A";
            break;
          default:
            break;
        }
        answer.insert(answer.end(), reply.begin(), reply.end());
      }
      tail.push_back(static_cast<char>(byte));
      if (tail.size() > 2) tail.erase(0, tail.size() - 2);
    }
    arrived.notify_all();
    return answer;
  }

  bool takesBytes() const override { return takes; }

  mutable std::mutex mutex;  // the four below
  mutable std::condition_variable arrived;
  Bytes received;
  std::map<std::uint64_t, std::string> tails;
  std::uint8_t status = 0;
  std::string name = "ORVANTE SIM-1";
  std::atomic<bool> takes{true};
};

SimulatedPrinter::SimulatedPrinter(std::string name)
    : name_(std::move(name)),
      end_(std::make_shared<End>()),
      attachment_(attachSimulatedEnd(name_, end_)) {}

SimulatedPrinter::~SimulatedPrinter() {
  hangUpSimulated(name_);
  attachment_.reset();
}

std::string SimulatedPrinter::uri() const {
  return "sim://" + name_;
}

Bytes SimulatedPrinter::received() const {
  std::lock_guard lock(end_->mutex);
  return end_->received;
}

bool SimulatedPrinter::waitForBytes(std::size_t count, std::chrono::milliseconds timeout) const {
  std::unique_lock lock(end_->mutex);
  return end_->arrived.wait_for(lock, timeout, [&] { return end_->received.size() >= count; });
}

void SimulatedPrinter::setStatus(std::uint8_t status) {
  std::lock_guard lock(end_->mutex);
  end_->status = status;
}

void SimulatedPrinter::setName(std::string name) {
  std::lock_guard lock(end_->mutex);
  end_->name = std::move(name);
}

void SimulatedPrinter::setTakesBytes(bool takes) {
  end_->takes = takes;
  if (takes) wakeSimulated(name_);
}

void SimulatedPrinter::hangUp() {
  hangUpSimulated(name_);
}

}  // namespace orvante::testing
