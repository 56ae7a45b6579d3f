// orvante::Batch: every record checked first, then each label sent,
// confirmed and journaled one at a time.

#include <orvante/batch.hpp>

#include <algorithm>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <unordered_map>

#include "digest.hpp"

namespace orvante {
namespace {

// Labels built in the check are kept for printing up to this many bytes;
// past it they are built again when they are sent.
constexpr std::size_t kKeptBytes = 64 * 1024 * 1024;

constexpr std::string_view kKind = "batch";

// Records a second over the last confirmations.
class Rate {
 public:
  void confirmed() {
    times_.push_back(std::chrono::steady_clock::now());
    if (times_.size() > 32) times_.pop_front();
  }
  double perSecond() const {
    if (times_.size() < 2) return 0;
    const std::chrono::duration<double> span = times_.back() - times_.front();
    return span.count() > 0 ? (times_.size() - 1) / span.count() : 0;
  }

 private:
  std::deque<std::chrono::steady_clock::time_point> times_;
};

std::string recordAt(const JobLabel& label) {
  return "record " + std::to_string(label.number) + " (line " + std::to_string(label.line) + ")";
}

}  // namespace

struct Batch::State {
  State(Template given, std::vector<Record> data) : labels(std::move(given)), records(std::move(data)) {}

  Template labels;
  std::vector<Record> records;
  std::unordered_map<std::size_t, std::size_t> byNumber;  // record number -> index
  std::vector<std::size_t> numbers;                      // printed, in order
  std::vector<Bytes> kept;                               // their labels, while they fit
  std::vector<SkippedRecord> skipped;
  std::string fingerprint;

  std::mutex mutex;  // the two below
  Delivery* printing = nullptr;
  bool stopped = false;

  const Record& record(std::size_t number) const {
    const auto found = byNumber.find(number);
    if (found == byNumber.end()) {
      throw std::invalid_argument("the batch holds no record " + std::to_string(number));
    }
    return records[found->second];
  }

  Bytes bytesOf(std::size_t number) const {
    if (!kept.empty()) {
      const auto at = std::lower_bound(numbers.begin(), numbers.end(), number);
      if (at != numbers.end() && *at == number) return kept[at - numbers.begin()];
    }
    return labels.fill(record(number)).bytes();
  }
};

Batch::Batch(Template labels, std::vector<Record> records, BatchOptions options)
    : state_(std::make_unique<State>(std::move(labels), std::move(records))) {
  State& state = *state_;
  std::size_t last = 0;
  for (std::size_t i = 0; i < state.records.size(); ++i) {
    const std::size_t number = state.records[i].number();
    if (!state.byNumber.emplace(number, i).second) {
      throw std::invalid_argument("two records have the number " + std::to_string(number));
    }
    last = std::max(last, number);
  }
  const std::size_t to = options.to == 0 ? last : options.to;
  if (options.from < 1 || options.from > to) {
    throw std::invalid_argument("the range of records " + std::to_string(options.from) + " to " +
                                std::to_string(to) + " is empty");
  }
  if (!state.records.empty() && options.from > last) {
    throw std::invalid_argument("the range starts at record " + std::to_string(options.from) +
                                ", past the last (" + std::to_string(last) + ")");
  }

  templating::Digest digest;
  digest.add(state.labels.fingerprint()).add(std::to_string(options.from)).add(std::to_string(to));
  std::size_t keptBytes = 0;
  bool keep = true;
  for (const Record& record : state.records) {
    if (record.number() < options.from || record.number() > to) continue;
    digest.add(std::to_string(record.number())).add(std::to_string(record.line()));
    for (const auto& [name, value] : record.fields()) digest.add(name).add(value);
    try {
      Label label = state.labels.fill(record);
      state.numbers.push_back(record.number());
      keptBytes += label.bytes().size();
      keep = keep && keptBytes <= kKeptBytes;
      if (keep) state.kept.push_back(label.bytes());
    } catch (const RecordError& refused) {
      if (!options.skipBad) throw;
      state.skipped.push_back({record.number(), record.line(), refused.reason()});
    }
  }
  if (!keep) state.kept.clear();
  std::sort(state.numbers.begin(), state.numbers.end());
  if (!std::is_sorted(state.records.begin(), state.records.end(),
                      [](const Record& a, const Record& b) { return a.number() < b.number(); })) {
    state.kept.clear();  // kept in record order, looked up in number order
  }
  state.fingerprint = digest.hex();
}

Batch::~Batch() = default;

const std::vector<SkippedRecord>& Batch::skipped() const { return state_->skipped; }
const std::vector<std::size_t>& Batch::numbers() const { return state_->numbers; }
const std::string& Batch::fingerprint() const { return state_->fingerprint; }

Label Batch::label(std::size_t number) const { return state_->labels.fill(state_->record(number)); }

std::int64_t Batch::newJob(JobStore& store, const std::string& printer,
                           const std::string& name) const {
  return addJob(store, printer, name, std::nullopt);
}

std::int64_t Batch::newJob(JobStore& store, const std::string& printer, const std::string& name,
                           ByteView document) const {
  return addJob(store, printer, name, document);
}

std::int64_t Batch::addJob(JobStore& store, const std::string& printer, const std::string& name,
                           std::optional<ByteView> document) const {
  const State& state = *state_;
  std::vector<JobLabel> labels;
  labels.reserve(state.numbers.size() + state.skipped.size());
  for (std::size_t number : state.numbers) {
    const Record& record = state.record(number);
    labels.push_back({number, record.line(), state.labels.copies(record), LabelState::Pending, 0, false, {}});
  }
  for (const SkippedRecord& skipped : state.skipped) {
    labels.push_back({skipped.number, skipped.line, 1, LabelState::Skipped, 0, false, skipped.reason});
  }
  Job job;
  job.kind = kKind;
  job.name = name;
  job.printer = printer;
  job.source = state.fingerprint;
  return store.add(job, labels, document);
}

std::optional<std::int64_t> Batch::unfinishedJob(const JobStore& store) const {
  if (const auto job = store.unfinished(kKind, state_->fingerprint)) return job->id;
  return std::nullopt;
}

BatchResult Batch::print(Delivery& delivery, JobStore& store, std::int64_t job, Progress progress) {
  State& state = *state_;
  {
    std::lock_guard lock(state.mutex);
    if (state.stopped) throw Delivery::Stopped("the batch was stopped");
    state.printing = &delivery;
  }
  // The delivery's listener and the batch's hold on it end with this call.
  struct Release {
    State& state;
    Delivery& delivery;
    ~Release() {
      delivery.onWaiting({});
      std::lock_guard lock(state.mutex);
      state.printing = nullptr;
    }
  } release{state, delivery};

  const std::vector<JobLabel> labels = store.labels(job);
  BatchProgress now;
  for (const JobLabel& label : labels) {
    now.total += label.state != LabelState::Skipped;
    now.done += label.state == LabelState::Confirmed;
  }
  Rate rate;
  const auto report = [&] {
    if (!progress) return;
    now.rate = rate.perSecond();
    now.left.reset();
    if (now.rate > 0) {
      now.left = std::chrono::seconds(static_cast<long long>((now.total - now.done) / now.rate + 0.5));
    }
    progress(now);
  };
  delivery.onWaiting([&](const Delivery::Wait& wait) {
    store.setState(job, wait.reason.empty() ? JobState::Printing : JobState::Waiting, wait.reason);
    now.waiting = wait.reason;
    now.fault = wait.fault;
    report();
  });

  BatchResult result;
  const JobLabel* current = nullptr;
  const auto end = [&](JobState state, const std::string& why) {
    try {
      store.setState(job, state, current ? why + "; " + recordAt(*current) + " is the first not confirmed" : why);
    } catch (const Error&) {
      // The exception that ended the batch says more than the store's.
    }
  };
  try {
    store.setState(job, JobState::Printing);
    report();
    for (const JobLabel& label : labels) {
      if (label.state == LabelState::Confirmed || label.state == LabelState::Skipped) continue;
      current = &label;
      {
        std::lock_guard lock(state.mutex);
        if (state.stopped) throw Delivery::Stopped("the batch was stopped");
      }
      const Bytes bytes = state.bytesOf(label.number);
      store.sending(job, label.number);
      const PrinterStatus status = delivery.print(bytes);
      store.confirmed(job, label.number, status.byte, delivery.waited());
      rate.confirmed();
      ++result.printed;
      ++now.done;
      report();
    }
  } catch (const Delivery::Stopped& stopped) {
    end(JobState::Stopped, stopped.what());
    throw;
  } catch (const Error& failed) {
    end(JobState::Failed, failed.what());
    throw;
  }
  store.setState(job, JobState::Done);
  for (const JobLabel& label : store.labels(job)) {
    if (label.maybeTwice) result.maybeTwice.push_back(label.number);
  }
  return result;
}

void Batch::stop() {
  std::lock_guard lock(state_->mutex);
  state_->stopped = true;
  if (state_->printing) state_->printing->stop();
}

}  // namespace orvante
