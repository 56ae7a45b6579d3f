#pragma once
// orvante::JobStore: print jobs and each of their labels, in an SQLite
// database in write-ahead-log mode: a crash at any instant, of the process
// or of the machine, leaves it consistent. A label is on the disk as sent
// before its bytes go; a confirmation is written through with the next
// label's sending (a crash of the machine may take back the last one: its
// label is then sent again, marked as one that may print twice).
// `orvante batch` keeps its journal here, a print service its queue of
// jobs. Anyone may read it with sqlite3:
//
//   sqlite3 orders.csv.journal 'SELECT id, state, printed, total, reason FROM jobs'
//   sqlite3 orders.csv.journal "SELECT number, line, state, sends, maybe_twice FROM labels
//                               WHERE job = 1 AND state <> 'confirmed'"
//
// jobs:   id, kind ("batch"...), name, printer, source (what the job was made
//         from, to find it again), state (queued, printing, waiting, done,
//         failed, stopped), reason (why it waits, failed or stopped),
//         printed and total (labels), created and updated (UTC, ISO 8601).
// labels: job, number (from 1; a batch's record number), line (its line in
//         the data, 0 for none), copies, state (pending, sent, confirmed,
//         skipped), sends, maybe_twice (1: it may have printed twice),
//         reason (why it was skipped), sent and confirmed (times), status
//         (the printer's status byte that confirmed it).
// documents: job, content: what a service keeps to print the job again
//         after a restart (its bytes, or its template and records).
//
// Calls from several threads are serialised; several processes may share
// the file (a writer waits up to 5 s for another).

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/bytes.hpp>
#include <orvante/error.hpp>
#include <orvante/export.hpp>

ORVANTE_API_BEGIN

namespace orvante {

enum class JobState { Queued, Printing, Waiting, Done, Failed, Stopped };
enum class LabelState { Pending, Sent, Confirmed, Skipped };

// "queued", "printing"...: the names the database holds.
std::string_view nameOf(JobState state);
std::string_view nameOf(LabelState state);

struct Job {
  std::int64_t id = 0;
  std::string kind;     // "batch", or the kind of job of the application
  std::string name;     // what a person knows it by: the data file, the document
  std::string printer;  // the printer's address
  std::string source;   // what it was made from, to find it again
  JobState state = JobState::Queued;
  std::string reason;
  std::size_t printed = 0;  // labels confirmed
  std::size_t total = 0;    // labels to print, the skipped ones not counted
  std::string created;
  std::string updated;
};

struct JobLabel {
  std::size_t number = 0;
  std::size_t line = 0;
  int copies = 1;
  LabelState state = LabelState::Pending;
  int sends = 0;
  bool maybeTwice = false;
  std::string reason;  // why it was skipped
};

class JobStore {
 public:
  // Opens the database, creating it (and its tables) when it is new.
  // Error when it cannot be opened or is not such a database.
  explicit JobStore(const std::filesystem::path& file);
  ~JobStore();
  JobStore(JobStore&&) noexcept;
  JobStore& operator=(JobStore&&) noexcept;

  // A new job, queued, with its labels (pending, or skipped with their
  // reason), in one write; the job's id.
  std::int64_t add(const Job& job, const std::vector<JobLabel>& labels);
  // The same, with the job's document stored in the same write.
  std::int64_t add(const Job& job, const std::vector<JobLabel>& labels,
                   std::optional<ByteView> document);
  std::optional<Job> job(std::int64_t id) const;
  // The document stored with the job; none for a job added without one.
  std::optional<Bytes> document(std::int64_t job) const;
  // Every job, the newest first.
  std::vector<Job> jobs() const;
  // The newest job of the kind and source that is not done.
  std::optional<Job> unfinished(std::string_view kind, std::string_view source) const;
  // The job's labels by number.
  std::vector<JobLabel> labels(std::int64_t job) const;

  void setState(std::int64_t job, JobState state, std::string_view reason = {});
  // The label is about to be sent. Written through to the disk before it
  // returns, so the label's bytes never leave unrecorded. A label sent
  // before (by a run that ended before it was confirmed) is marked as one
  // that may print twice.
  void sending(std::int64_t job, std::size_t number);
  // The printer confirmed the label, answering with the status byte;
  // maybeTwice when it was in flight at a fault and went again.
  void confirmed(std::int64_t job, std::size_t number, std::uint8_t status, bool maybeTwice);

 private:
  struct Database;
  std::unique_ptr<Database> database_;
};

}  // namespace orvante

ORVANTE_API_END
