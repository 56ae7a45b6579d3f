#pragma once
// orvante::Batch: a template's label for each record, printed so that none
// is lost and none is skipped. Every record is filled and checked before
// the first label is sent. Then each label goes through a Delivery, which
// confirms it by a status round trip and waits out a printer that is away
// or in a fault; the job store records it as sent (on the disk before its
// bytes go) and as confirmed. A batch that stops, gives up or is killed
// goes on from its first unconfirmed record: at most that one label, in
// flight at the fault, may print twice, and the store marks it.
//
//   orvante::Batch batch(orvante::Template::load("label.json"),
//                        orvante::readRecords("orders.csv"));
//   orvante::JobStore journal("orders.csv.journal");
//   orvante::Delivery delivery("tcp://192.168.1.50");
//   const auto job = batch.unfinishedJob(journal).value_or(
//       batch.newJob(journal, "tcp://192.168.1.50", "orders.csv"));
//   batch.print(delivery, journal, job, [](const orvante::BatchProgress& progress) {
//     std::cerr << progress.done << '/' << progress.total << ' ' << progress.waiting << '\n';
//   });

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orvante/delivery.hpp>
#include <orvante/export.hpp>
#include <orvante/job_store.hpp>
#include <orvante/label.hpp>
#include <orvante/records.hpp>
#include <orvante/template.hpp>

ORVANTE_API_BEGIN

namespace orvante {

struct BatchOptions {
  std::size_t from = 1;  // the first record printed, by its number (from 1)
  std::size_t to = 0;    // the last; 0 for the last of the data
  // Records that cannot be printed are skipped and listed, rather than
  // stopping the batch before it starts.
  bool skipBad = false;
};

struct SkippedRecord {
  std::size_t number = 0;
  std::size_t line = 0;
  std::string reason;
};

struct BatchProgress {
  std::size_t done = 0;   // records of the job printed and confirmed
  std::size_t total = 0;  // records the job prints
  double rate = 0;        // records a second, over the last few; 0 before there are two
  std::optional<std::chrono::seconds> left;  // at that rate
  std::string waiting;    // why the batch waits; empty while it prints
  std::optional<PrinterStatus> fault;
};

struct BatchResult {
  std::size_t printed = 0;  // records printed and confirmed by this call
  // The job's records that may have printed twice (in flight at a fault,
  // or sent by a run that ended before the printer confirmed them).
  std::vector<std::size_t> maybeTwice;
};

class Batch {
 public:
  using Progress = std::function<void(const BatchProgress&)>;

  // Fills and checks the label of every record in the range; sends
  // nothing. Throws RecordError for the first record that cannot be
  // printed (unless options.skipBad: skipped() then lists them), and
  // std::invalid_argument for a range outside the records.
  Batch(Template labels, std::vector<Record> records, BatchOptions options = {});
  ~Batch();
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  const std::vector<SkippedRecord>& skipped() const;
  // The numbers of the records it prints, in order, and their count.
  const std::vector<std::size_t>& numbers() const;
  std::size_t total() const { return numbers().size(); }
  // The label of one of them.
  Label label(std::size_t number) const;
  // What it is made of (template, records and range), to find its job again.
  const std::string& fingerprint() const;

  // A new job of kind "batch" in the store: its records pending, the
  // skipped ones skipped with their reason.
  std::int64_t newJob(JobStore& store, const std::string& printer, const std::string& name) const;
  // The same, keeping `document` with the job (JobStore::document): what a
  // service needs to build the batch again after a restart.
  std::int64_t newJob(JobStore& store, const std::string& printer, const std::string& name,
                      ByteView document) const;
  // The newest job in the store made of the same template, records and
  // range that is not done.
  std::optional<std::int64_t> unfinishedJob(const JobStore& store) const;

  // Prints the job's records that are not confirmed, in order, and marks
  // the job done. `progress` is called on this thread after each record
  // and whenever the printer makes the batch wait or go on (the delivery's
  // onWaiting is the batch's while it prints). When the delivery gives up
  // (Error) or is stopped (Delivery::Stopped), the job is marked failed or
  // stopped, with the reason and its first unconfirmed record, and the
  // exception goes on.
  BatchResult print(Delivery& delivery, JobStore& store, std::int64_t job, Progress progress = {});

  // Any thread: a print in progress ends with Delivery::Stopped.
  void stop();

 private:
  std::int64_t addJob(JobStore& store, const std::string& printer, const std::string& name,
                      std::optional<ByteView> document) const;
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace orvante

ORVANTE_API_END
