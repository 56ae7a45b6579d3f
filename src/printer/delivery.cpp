// orvante::Delivery: a label at a time, each confirmed by a status round
// trip, waiting out a printer that is away or in a fault.

#include <orvante/delivery.hpp>
#include <orvante/label.hpp>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <optional>

namespace orvante {
namespace {

using SteadyClock = std::chrono::steady_clock;

// The conditions in which a printer prints nothing.
constexpr std::uint8_t kFaults = 0x01 | 0x02 | 0x04 | 0x08 | 0x10 | 0x80;

bool faulty(PrinterStatus status) { return (status.byte & kFaults) != 0; }

// How often a stop condition is asked while a delivery waits.
constexpr auto kStopSlice = std::chrono::milliseconds(100);

}  // namespace

struct Delivery::State {
  State(std::string address, Options given) : uri(std::move(address)), options(given) {}

  const std::string uri;
  const Options options;

  std::mutex mutex;  // everything below
  std::condition_variable woken;
  Waiting waiting;
  std::function<bool()> shouldStop;
  bool stopped = false;
  bool waitedLast = false;
  // Shared with stop(), which closes it from another thread.
  std::shared_ptr<Printer> printer;

  void throwIfStopped() {
    std::function<bool()> asked;
    {
      std::lock_guard lock(mutex);
      asked = shouldStop;
    }
    const bool stop = asked && asked();
    std::lock_guard lock(mutex);
    stopped = stopped || stop;
    if (stopped) throw Stopped("the delivery to " + uri + " was stopped");
  }

  std::shared_ptr<Printer> current() {
    std::lock_guard lock(mutex);
    return printer;
  }

  void drop() {
    std::shared_ptr<Printer> old;
    {
      std::lock_guard lock(mutex);
      old = std::move(printer);
    }
    if (old) old->close();
  }

  // The printer, connected if need be (`fresh` then set); none, and `why`
  // set, when it cannot be.
  std::shared_ptr<Printer> connected(std::string& why, bool& fresh) {
    if (auto open = current(); open && open->isOpen()) return open;
    drop();
    fresh = true;
    try {
      auto opened = std::make_shared<Printer>(Printer::open(uri, options.connectTimeout));
      std::lock_guard lock(mutex);
      if (stopped) return nullptr;
      printer = opened;
      return opened;
    } catch (const Error& error) {
      why = std::string("cannot reach the printer: ") + error.what();
      return nullptr;
    }
  }

  void tell(const Wait& wait) {
    Waiting listener;
    {
      std::lock_guard lock(mutex);
      listener = waiting;
    }
    if (listener) listener(wait);
  }

  // Says why, then sleeps the pause (stop() wakes it, a stop condition is
  // asked every tenth of a second); Error once the label has waited past
  // giveUpAfter.
  void pause(const std::string& why, std::optional<PrinterStatus> fault,
             SteadyClock::time_point since, Printer::Timeout& next) {
    tell({why, fault});
    const auto waitedFor = SteadyClock::now() - since;
    if (options.giveUpAfter > Printer::Timeout::zero() && waitedFor >= options.giveUpAfter) {
      throw Error(
          "gave up after waiting " +
          std::to_string(std::chrono::duration_cast<std::chrono::seconds>(waitedFor).count()) +
          " s for the printer at " + uri + ": " + why);
    }
    const auto until = SteadyClock::now() + next;
    next = std::min(next * 2, options.longestPause);
    for (;;) {
      throwIfStopped();
      const auto now = SteadyClock::now();
      if (now >= until) return;
      std::unique_lock lock(mutex);
      const SteadyClock::duration left = until - now;
      woken.wait_for(lock, shouldStop ? std::min<SteadyClock::duration>(left, kStopSlice) : left,
                     [&] { return stopped; });
    }
  }

  PrinterStatus deliver(ByteView bytes) {
    const auto since = SteadyClock::now();
    Printer::Timeout next = options.firstPause;
    bool waited = false;
    // On a new connection and after a fault the printer is asked first, so
    // a label is not sent into a printer that cannot print it.
    bool askFirst = false;
    for (;; waited = true) {
      throwIfStopped();
      std::string why;
      auto link = connected(why, askFirst);
      if (!link) {
        throwIfStopped();
        pause(why, std::nullopt, since, next);
        continue;
      }
      std::optional<PrinterStatus> fault;
      try {
        if (askFirst) {
          const PrinterStatus before = link->status(options.confirmTimeout);
          if (faulty(before)) fault = before;
          else askFirst = false;
        }
        if (!fault) {
          const PrinterStatus after = link->sendConfirmed(bytes, options.confirmTimeout);
          if (!faulty(after)) {
            if (waited) tell({});
            std::lock_guard lock(mutex);
            waitedLast = waited;
            return after;
          }
          // The fault came while this label was on its way: it goes again.
          askFirst = true;
          fault = after;
        }
        why = fault->describe();
      } catch (const Error& error) {
        throwIfStopped();
        drop();
        askFirst = true;
        why = std::string("lost the printer: ") + error.what();
      }
      pause(why, fault, since, next);
    }
  }
};

Delivery::Delivery(std::string uri, Options options)
    : state_(std::make_shared<State>(std::move(uri), options)) {}

Delivery::~Delivery() { stop(); }

void Delivery::onWaiting(Waiting waiting) {
  std::lock_guard lock(state_->mutex);
  state_->waiting = std::move(waiting);
}

void Delivery::stopWhen(std::function<bool()> shouldStop) {
  std::lock_guard lock(state_->mutex);
  state_->shouldStop = std::move(shouldStop);
}

PrinterStatus Delivery::print(ByteView bytes) { return state_->deliver(bytes); }

PrinterStatus Delivery::print(const Label& label) { return print(label.bytes()); }

void Delivery::stop() {
  std::shared_ptr<Printer> printer;
  {
    std::lock_guard lock(state_->mutex);
    state_->stopped = true;
    printer = state_->printer;
  }
  state_->woken.notify_all();
  if (printer) printer->close();
}

bool Delivery::waited() const {
  std::lock_guard lock(state_->mutex);
  return state_->waitedLast;
}

}  // namespace orvante
