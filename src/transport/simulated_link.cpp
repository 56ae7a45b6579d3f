#include "simulated_link.hpp"

#include <orvante/testing/simulation.hpp>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "event_loop.hpp"

namespace orvante::transport {
namespace {

class SimulatedLink;

struct Attached {
  std::weak_ptr<testing::SimulatedEnd> end;
  std::uint64_t handle = 0;
  std::vector<std::weak_ptr<SimulatedLink>> links;
};

struct Registry {
  std::mutex mutex;
  std::map<std::string, Attached> ends;
  std::atomic<std::uint64_t> nextConnection{1};
  std::uint64_t nextHandle = 1;
};

Registry& registry() {
  static Registry* const instance = new Registry;  // links may outlive exit's destructors
  return *instance;
}

class SimulatedLink final : public Link {
 public:
  SimulatedLink(std::string name, std::weak_ptr<testing::SimulatedEnd> end,
                EventLoop::Token running)
      : Link("sim://" + name),
        end_(std::move(end)),
        connection_(registry().nextConnection++),
        running_(std::move(running)) {}
  ~SimulatedLink() override { close(); }

  // On the loop: the simulated printer hung up.
  void hangUp() { ended(); }
  void wake() { writableAgain(); }

 protected:
  void doStart() override {
    EventLoop::instance().post([self = weakSelf()] {
      if (auto link = self.lock()) link->opened();
    });
  }

  std::size_t doRead(std::span<std::uint8_t> buffer) override {
    std::lock_guard lock(mutex_);
    const std::size_t count = std::min(buffer.size(), input_.size());
    std::copy_n(input_.begin(), count, buffer.begin());
    input_.erase(input_.begin(), input_.begin() + static_cast<std::ptrdiff_t>(count));
    return count;
  }

  std::size_t doWrite(ByteView bytes) override {
    if (end_.expired()) {
      ended();  // the simulated printer is gone
      return 0;
    }
    if (!doWritable()) return 0;
    // The printer is reached without the link, which a close may end
    // before the loop delivers.
    EventLoop::instance().post([self = weakSelf(), end = end_, connection = connection_,
                                copy = Bytes(bytes.begin(), bytes.end())] {
      const auto printer = end.lock();
      const auto link = self.lock();
      if (!printer) {
        if (link) link->ended();
        return;
      }
      const Bytes answer = printer->take(connection, copy);
      if (link) link->answer(answer);
    });
    return bytes.size();
  }

  std::size_t doAvailable() override {
    std::lock_guard lock(mutex_);
    return input_.size();
  }

  bool doWritable() override {
    const auto end = end_.lock();
    return end && end->takesBytes();
  }

  void doClose() override {
    std::lock_guard lock(mutex_);
    running_.reset();
  }

 private:
  std::weak_ptr<SimulatedLink> weakSelf() {
    return std::static_pointer_cast<SimulatedLink>(shared_from_this());
  }

  // On the loop, in the order written: the printer's answer to bytes it
  // took. Bytes written before a close still reach the printer, as a
  // socket's do; only its answer is dropped.
  void answer(const Bytes& reply) {
    if (reply.empty() || isClosed()) return;
    {
      std::lock_guard lock(mutex_);
      input_.insert(input_.end(), reply.begin(), reply.end());
    }
    readable();
  }

  const std::weak_ptr<testing::SimulatedEnd> end_;
  const std::uint64_t connection_;
  std::mutex mutex_;  // the two below
  Bytes input_;
  EventLoop::Token running_;
};

// The links of a name still open, under the registry's lock.
std::vector<std::shared_ptr<SimulatedLink>> openLinks(Attached& attached) {
  std::vector<std::shared_ptr<SimulatedLink>> open;
  for (const auto& weak : attached.links) {
    if (auto link = weak.lock()) open.push_back(std::move(link));
  }
  attached.links.assign(open.begin(), open.end());
  return open;
}

template <class Action>
void forEachLink(const std::string& name, Action action) {
  std::vector<std::shared_ptr<SimulatedLink>> links;
  {
    std::lock_guard lock(registry().mutex);
    const auto found = registry().ends.find(name);
    if (found == registry().ends.end()) return;
    links = openLinks(found->second);
  }
  for (const auto& link : links) {
    EventLoop::instance().post([weak = std::weak_ptr(link), action] {
      if (auto held = weak.lock()) action(*held);
    });
  }
}

}  // namespace

std::shared_ptr<Link> simulatedLink(const std::string& name) {
  std::lock_guard lock(registry().mutex);
  const auto found = registry().ends.find(name);
  if (found == registry().ends.end() || found->second.end.expired()) return nullptr;
  auto running = EventLoop::instance().keepRunning();
  if (!running) return nullptr;
  auto link = std::make_shared<SimulatedLink>(name, found->second.end, std::move(running));
  openLinks(found->second);  // forgets the closed ones
  found->second.links.push_back(link);
  return link;
}

}  // namespace orvante::transport

namespace orvante::testing {

std::shared_ptr<void> attachSimulatedEnd(const std::string& name, std::weak_ptr<SimulatedEnd> end) {
  if (name.empty() || name.find('/') != std::string::npos) {
    throw std::invalid_argument("a simulated printer's name must be non-empty and hold no '/'");
  }
  auto& registry = transport::registry();
  std::lock_guard lock(registry.mutex);
  auto& attached = registry.ends[name];
  if (!attached.end.expired()) {
    throw std::invalid_argument("a simulated printer is named \"" + name + "\" already");
  }
  const std::uint64_t handle = registry.nextHandle++;
  attached = {std::move(end), handle, {}};
  return std::shared_ptr<void>(nullptr, [name, handle](void*) {
    auto& ends = transport::registry().ends;
    std::lock_guard release(transport::registry().mutex);
    if (auto found = ends.find(name); found != ends.end() && found->second.handle == handle) {
      ends.erase(found);
    }
  });
}

void hangUpSimulated(const std::string& name) {
  transport::forEachLink(name, [](transport::SimulatedLink& link) { link.hangUp(); });
}

void wakeSimulated(const std::string& name) {
  transport::forEachLink(name, [](transport::SimulatedLink& link) { link.wake(); });
}

}  // namespace orvante::testing
