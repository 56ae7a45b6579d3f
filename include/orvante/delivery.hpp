#pragma once
// orvante::Delivery: labels to one printer so that none is lost and none is
// skipped. A label counts as printed only once the printer has confirmed it
// (it answered a status query sent after the label, and it reported no
// fault). While the printer cannot be reached, or reports a fault (head
// open, paper out or jammed, ribbon out, paused), the delivery waits,
// connecting again after pauses that grow, and says why; when the printer
// is back, the label it had not confirmed is sent again. At most that one
// label, in flight at the fault, may print twice.
//
//   orvante::Delivery delivery("tcp://192.168.1.50");
//   delivery.onWaiting([](const orvante::Delivery::Wait& wait) { std::cerr << wait.reason << '\n'; });
//   for (const auto& label : labels) delivery.print(label);

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <orvante/bytes.hpp>
#include <orvante/error.hpp>
#include <orvante/export.hpp>
#include <orvante/printer.hpp>

ORVANTE_API_BEGIN

namespace orvante {

class Label;

struct DeliveryOptions {
  Printer::Timeout connectTimeout = std::chrono::seconds(5);
  // For the printer's answer after a label.
  Printer::Timeout confirmTimeout = std::chrono::seconds(30);
  // The pauses between attempts double from the first to the longest.
  Printer::Timeout firstPause = std::chrono::milliseconds(250);
  Printer::Timeout longestPause = std::chrono::seconds(10);
  // How long one label may wait in all before Error; 0 waits for ever.
  Printer::Timeout giveUpAfter = Printer::Timeout::zero();
};

class Delivery {
 public:
  using Options = DeliveryOptions;

  // Why the delivery waits: the reason in words ("cannot reach the
  // printer: Connection refused", "out of paper") and, for a fault, the
  // status the printer reported; an empty reason once it goes on.
  struct Wait {
    std::string reason;
    std::optional<PrinterStatus> fault;
  };
  using Waiting = std::function<void(const Wait& wait)>;

  // Stopped: stop() was called, from any thread, while a label waited.
  class Stopped : public Error {
   public:
    using Error::Error;
  };

  explicit Delivery(std::string uri, Options options = {});
  ~Delivery();
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  void onWaiting(Waiting waiting);
  // Asked before each attempt and while waiting: true stops the delivery
  // as stop() does (a job that was cancelled).
  void stopWhen(std::function<bool()> shouldStop);

  // Returns the printer's status once it confirmed the bytes. Throws
  // Stopped, or Error when giveUpAfter passed with the last reason.
  PrinterStatus print(ByteView bytes);
  PrinterStatus print(const Label& label);

  // Any thread: a label waiting or in progress ends with Stopped, and so do
  // all later ones.
  void stop();

  // Whether the last print had to wait (the label in flight at that moment
  // may have printed twice).
  bool waited() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace orvante

ORVANTE_API_END
