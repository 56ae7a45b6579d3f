#pragma once
// Print jobs: kept in a JobStore (SQLite) with their content, printed one
// at a time per printer by a worker thread of that printer, each label
// confirmed through a Delivery, which waits out a printer that is away or
// in a fault. A service started again on the same store goes on with the
// jobs it had not finished, from their first unconfirmed label.
//
// Two kinds of job:
//   "commands"  printer commands as sent: one unit, sent whole and
//               confirmed once (total 1). Commands cannot be cut into
//               labels safely (a bitmap's bytes may hold any text), so a
//               job that waits goes again whole.
//   "batch"     a template and its records: a label per record, each
//               confirmed, as orvante batch prints them.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <orvante/delivery.hpp>
#include <orvante/job_store.hpp>

#include "printer_status.hpp"

namespace orvante::serve {

class JobQueue {
 public:
  // An empty `state` keeps the jobs in memory only. Starts a worker per
  // printer and queues the store's unfinished jobs.
  JobQueue(const std::filesystem::path& state, const std::vector<NamedPrinter>& printers,
           DeliveryOptions delivery);
  // Stops the workers: a job in progress is left to the next start.
  ~JobQueue();
  JobQueue(const JobQueue&) = delete;
  JobQueue& operator=(const JobQueue&) = delete;

  bool hasPrinter(std::string_view name) const;
  // New jobs, queued; their id. HttpError 400 for a template job that
  // cannot be printed (nothing is queued then).
  std::int64_t addCommands(const std::string& printer, std::string_view commands);
  std::int64_t addTemplate(const std::string& printer, std::string_view body);
  std::optional<Job> job(std::int64_t id) const;

 private:
  class Worker;
  std::unique_ptr<JobStore> store_;
  std::map<std::string, std::unique_ptr<Worker>, std::less<>> workers_;
};

}  // namespace orvante::serve
