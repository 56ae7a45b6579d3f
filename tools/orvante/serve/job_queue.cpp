// The job queue: a worker thread per printer takes its jobs in order of
// arrival; the store says what each has printed.

#include "job_queue.hpp"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include <orvante/batch.hpp>

#include "http_error.hpp"
#include "requests.hpp"

namespace orvante::serve {
namespace {

constexpr std::string_view kCommands = "commands";
constexpr std::string_view kBatch = "batch";

}  // namespace

class JobQueue::Worker {
 public:
  Worker(JobStore& store, std::string uri, DeliveryOptions options)
      : store_(store), uri_(std::move(uri)), options_(options), thread_([this] { work(); }) {}

  ~Worker() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
      if (delivery_) delivery_->stop();
    }
    wake_.notify_all();
    thread_.join();
  }

  void queue(std::int64_t job) {
    {
      std::lock_guard lock(mutex_);
      jobs_.push_back(job);
    }
    wake_.notify_all();
  }

 private:
  void work() {
    Delivery delivery(uri_, options_);
    // Read without the mutex: the delivery asks while it holds its own.
    delivery.stopWhen([this] { return stopping_.load(); });
    {
      std::lock_guard lock(mutex_);
      delivery_ = &delivery;
    }
    for (;;) {
      std::int64_t job = 0;
      {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, [&] { return stopping_ || !jobs_.empty(); });
        if (stopping_) break;
        job = jobs_.front();
        jobs_.pop_front();
      }
      print(delivery, job);
    }
    std::lock_guard lock(mutex_);
    delivery_ = nullptr;
  }

  void print(Delivery& delivery, std::int64_t id) {
    try {
      const auto job = store_.job(id);
      const auto document = store_.document(id);
      if (!job || !document) return;
      if (job->kind == kBatch) {
        const TemplateJob content = parseTemplateJob(textOf(*document));
        Batch batch(content.labels, content.records);
        batch.print(delivery, store_, id);
      } else {
        printCommands(delivery, id, *document);
      }
    } catch (const Delivery::Stopped&) {
      // The service stops: the job goes on at its next start.
    } catch (const std::exception& failure) {
      try {
        store_.setState(id, JobState::Failed, failure.what());
      } catch (const std::exception&) {
      }
    }
  }

  // One unit: journaled as sent, sent whole, confirmed.
  void printCommands(Delivery& delivery, std::int64_t id, const Bytes& commands) {
    delivery.onWaiting([&](const Delivery::Wait& wait) {
      store_.setState(id, wait.reason.empty() ? JobState::Printing : JobState::Waiting, wait.reason);
    });
    struct Quiet {
      Delivery& delivery;
      ~Quiet() { delivery.onWaiting({}); }
    } quiet{delivery};
    try {
      store_.setState(id, JobState::Printing);
      for (const JobLabel& label : store_.labels(id)) {
        if (label.state == LabelState::Confirmed || label.state == LabelState::Skipped) continue;
        store_.sending(id, label.number);
        const PrinterStatus status = delivery.print(commands);
        store_.confirmed(id, label.number, status.byte, delivery.waited());
      }
      store_.setState(id, JobState::Done);
    } catch (const Delivery::Stopped& stopped) {
      store_.setState(id, JobState::Stopped, stopped.what());
      throw;
    }
  }

  JobStore& store_;
  std::string uri_;
  DeliveryOptions options_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::int64_t> jobs_;
  std::atomic<bool> stopping_{false};
  Delivery* delivery_ = nullptr;  // while the worker runs
  std::thread thread_;            // last: it starts with everything above ready
};

JobQueue::JobQueue(const std::filesystem::path& state, const std::vector<NamedPrinter>& printers,
                   DeliveryOptions delivery)
    : store_(std::make_unique<JobStore>(state.empty() ? std::filesystem::path(":memory:") : state)) {
  for (const NamedPrinter& printer : printers) {
    workers_.emplace(printer.name, std::make_unique<Worker>(*store_, printer.uri, delivery));
  }
  // The jobs a service before this one had not finished, oldest first.
  auto jobs = store_->jobs();
  for (auto job = jobs.rbegin(); job != jobs.rend(); ++job) {
    if (job->state == JobState::Done || job->state == JobState::Failed) continue;
    if (job->kind != kCommands && job->kind != kBatch) continue;
    if (!store_->document(job->id)) continue;  // not the service's
    const auto worker = workers_.find(job->printer);
    if (worker == workers_.end()) {
      store_->setState(job->id, JobState::Waiting,
                       "the service has no printer named " + job->printer +
                           " (start it with --printer " + job->printer + "=URI)");
      continue;
    }
    store_->setState(job->id, JobState::Queued);
    worker->second->queue(job->id);
  }
}

JobQueue::~JobQueue() { workers_.clear(); }

bool JobQueue::hasPrinter(std::string_view name) const { return workers_.find(name) != workers_.end(); }

std::int64_t JobQueue::addCommands(const std::string& printer, std::string_view commands) {
  Job job;
  job.kind = kCommands;
  job.name = "commands";
  job.printer = printer;
  const std::int64_t id =
      store_->add(job, {JobLabel{1, 0, 1, LabelState::Pending, 0, false, {}}}, viewOf(commands));
  workers_.at(printer)->queue(id);
  return id;
}

std::int64_t JobQueue::addTemplate(const std::string& printer, std::string_view body) {
  const TemplateJob content = parseTemplateJob(body);
  std::optional<Batch> batch;
  try {
    batch.emplace(content.labels, content.records);
  } catch (const std::invalid_argument& refused) {
    throw HttpError(400, std::string("records: ") + refused.what() + " (nothing was queued)");
  }
  const std::int64_t id = batch->newJob(*store_, printer, "template", viewOf(body));
  workers_.at(printer)->queue(id);
  return id;
}

std::optional<Job> JobQueue::job(std::int64_t id) const { return store_->job(id); }

}  // namespace orvante::serve
