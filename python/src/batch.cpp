// orvante.Batch: a template's label for each record, every one checked
// before the first is sent, then printed through a Delivery with a journal
// so that none is lost and none is skipped. print() runs without the GIL;
// the progress callback and the check for Ctrl-C take it back for their
// own calls. An exception in the callback stops the batch as stop() does
// (the journal marks the job stopped) and is raised from print().

#include "bindings.hpp"

#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orvante/batch.hpp>

namespace orvante::python {
namespace {

struct PyBatch {
  std::unique_ptr<Batch> batch;
  std::atomic<bool> printing{false};
};

struct PyBatchResult {
  std::size_t printed = 0;  // by this call
  std::size_t done = 0;     // the job's labels confirmed, by every run
  std::size_t total = 0;
  std::vector<std::size_t> maybeTwice;
  std::int64_t job = 0;
};

// One print at a time on a batch: the C++ batch holds one delivery.
class Printing {
 public:
  explicit Printing(PyBatch& batch) : batch_(batch) {
    if (batch_.printing.exchange(true)) throw Error("the batch is printing already");
  }
  ~Printing() { batch_.printing = false; }
  Printing(const Printing&) = delete;
  Printing& operator=(const Printing&) = delete;

 private:
  PyBatch& batch_;
};

std::unique_ptr<PyBatch> makeBatch(const Template& labels, const py::iterable& given,
                                   std::size_t from, std::optional<std::size_t> to, bool skipBad) {
  std::vector<Record> records;
  std::size_t position = 0;
  for (const py::handle record : given) records.push_back(recordOf(record, ++position));
  auto made = std::make_unique<PyBatch>();
  {
    // Every label is filled here; text in installed fonts is drawn.
    py::gil_scoped_release released;
    // Bad records are always collected, so the first one is raised with
    // its number, which the C++ refusal does not carry.
    made->batch = std::make_unique<Batch>(labels, std::move(records),
                                          BatchOptions{from, to.value_or(0), true});
  }
  if (!skipBad && !made->batch->skipped().empty()) {
    const SkippedRecord& first = made->batch->skipped().front();
    raiseRecordError(first.number, first.line, first.reason);
  }
  return made;
}

// The job to print, as `orvante batch` finds it: the unfinished one to
// resume, else a new one while none is unfinished.
std::int64_t jobFor(const Batch& batch, JobStore& store, const std::string& journal, bool resume,
                    const std::string& uri, const std::string& name) {
  const auto unfinished = batch.unfinishedJob(store);
  if (resume) {
    if (!unfinished) {
      throw Error(journal + " holds no unfinished batch of this template, records and range: "
                            "nothing to resume");
    }
    return *unfinished;
  }
  if (unfinished) {
    const Job job = *store.job(*unfinished);
    throw Error(journal + " holds an unfinished batch of this template, records and range (job " +
                std::to_string(job.id) + ", " + std::to_string(job.printed) + " of " +
                std::to_string(job.total) + " printed): resume=True goes on from its first "
                "unconfirmed record");
  }
  return batch.newJob(store, uri, name);
}

PyBatchResult print(PyBatch& self, const std::string& uri,
                    const std::optional<std::filesystem::path>& journal, bool resume,
                    const std::string& name, const py::object& onProgress,
                    std::optional<double> wait, double connectTimeout, double confirmTimeout) {
  if (resume && !journal) {
    throw std::invalid_argument("resume goes on with the batch of a journal: give journal=PATH");
  }
  if (!onProgress.is_none() && !PyCallable_Check(onProgress.ptr())) {
    throw py::type_error("on_progress must be callable or None");
  }
  DeliveryOptions options;
  options.connectTimeout = toTimeout(connectTimeout, "the connect timeout");
  options.confirmTimeout = toTimeout(confirmTimeout, "the confirm timeout");
  if (wait) options.giveUpAfter = toGiveUpAfter(*wait, "wait");
  const Printing printing(self);
  Batch& batch = *self.batch;
  // The exception of the callback or of a signal handler, raised once the
  // batch has stopped; kept out here so it is let go with the GIL.
  std::optional<py::error_already_set> raised;
  PyBatchResult result;
  {
    py::gil_scoped_release released;
    // Without a journal the job lives in memory for this call.
    JobStore store(journal ? *journal : std::filesystem::path(":memory:"));
    const std::string where = journal ? journal->string() : "the journal";
    result.job = jobFor(batch, store, where, resume, uri, name);
    Delivery delivery(uri, options);
    // Ctrl-C while the printer is away, or with no callback: the handler
    // runs, on the main thread, each time the delivery asks; what it
    // raises stops the batch as the callback's exception does.
    delivery.stopWhen([&] {
      py::gil_scoped_acquire held;
      if (raised || PyErr_CheckSignals() == 0) return false;
      raised.emplace();
      batch.stop();
      return true;
    });
    Batch::Progress progress;
    if (!onProgress.is_none()) {
      progress = [&](const BatchProgress& now) {
        py::gil_scoped_acquire held;
        if (raised) return;
        try {
          onProgress(now);
        } catch (py::error_already_set& error) {
          raised.emplace(std::move(error));
          batch.stop();
        }
      };
    }
    try {
      const BatchResult printed = batch.print(delivery, store, result.job, progress);
      result.printed = printed.printed;
      result.maybeTwice = printed.maybeTwice;
    } catch (const Delivery::Stopped&) {
      if (!raised) throw;
    } catch (const Error& ended) {
      if (!journal) throw;
      const auto job = store.job(result.job);
      throw Error((job && !job->reason.empty() ? job->reason : std::string(ended.what())) +
                  " (journal: " + where + ", job " + std::to_string(result.job) +
                  "; resume=True goes on)");
    }
    const Job job = *store.job(result.job);
    result.done = job.printed;
    result.total = job.total;
  }
  if (raised) throw *raised;
  return result;
}

}  // namespace

void bindBatch(py::module_& module) {
  py::class_<SkippedRecord>(module, "SkippedRecord", "A record a batch skipped, and why.")
      .def_readonly("number", &SkippedRecord::number)
      .def_readonly("line", &SkippedRecord::line)
      .def_readonly("reason", &SkippedRecord::reason)
      .def("__repr__", [](const SkippedRecord& skipped) {
        return "<orvante.SkippedRecord " + std::to_string(skipped.number) + " (line " +
               std::to_string(skipped.line) + "): " + skipped.reason + ">";
      });

  py::class_<BatchProgress>(module, "BatchProgress", "Where a printing batch is.")
      .def_readonly("done", &BatchProgress::done, "Records of the job printed and confirmed.")
      .def_readonly("total", &BatchProgress::total, "Records the job prints.")
      .def_readonly("rate", &BatchProgress::rate,
                    "Records a second over the last few; 0 before there are two.")
      .def_property_readonly(
          "left",
          [](const BatchProgress& progress) -> std::optional<double> {
            if (!progress.left) return std::nullopt;
            return static_cast<double>(progress.left->count());
          },
          "Seconds left at that rate; None before there is a rate.")
      .def_readonly("waiting", &BatchProgress::waiting,
                    "Why the batch waits (\"out of paper\"); empty while it prints.")
      .def_readonly("fault", &BatchProgress::fault,
                    "The status of the printer's fault while it waits for one, else None.")
      .def("__repr__", [](const BatchProgress& progress) {
        return "<orvante.BatchProgress " + std::to_string(progress.done) + "/" +
               std::to_string(progress.total) +
               (progress.waiting.empty() ? "" : " waiting: " + progress.waiting) + ">";
      });

  py::class_<PyBatchResult>(module, "BatchResult", "What Batch.print did.")
      .def_readonly("printed", &PyBatchResult::printed,
                    "Records printed and confirmed by this call.")
      .def_readonly("done", &PyBatchResult::done,
                    "The job's records printed and confirmed, by this call and those before.")
      .def_readonly("total", &PyBatchResult::total, "The records the job prints.")
      .def_readonly("maybe_twice", &PyBatchResult::maybeTwice,
                    "Numbers of records that may have printed twice (in flight at a fault, or "
                    "sent by a run that ended before the printer confirmed them).")
      .def_readonly("job", &PyBatchResult::job, "The job's id in the journal.")
      .def("__repr__", [](const PyBatchResult& result) {
        return "<orvante.BatchResult " + std::to_string(result.done) + " of " +
               std::to_string(result.total) + " printed, " + std::to_string(result.printed) +
               " by this call>";
      });

  py::class_<PyBatch>(module, "Batch", R"(A template's label for each record, printed so that none is lost and none is skipped.

Every record is filled and checked when the batch is made, before any
label is sent. print() then sends each label through a Delivery, which
confirms it by a status round trip and waits out a printer that is away or
in a fault; the journal (an SQLite file) records each label as sent, before
its bytes go, and as confirmed. A batch that stops, gives up or is killed
goes on with resume=True from its first unconfirmed record: at most that
one label, in flight at the fault, may print twice.

    batch = orvante.Batch(orvante.Template.from_file("label.json"),
                          orvante.read_records("orders.csv"))
    result = batch.print("tcp://192.168.1.50", journal="orders.csv.journal",
                         on_progress=lambda p: print(p.done, "/", p.total, p.waiting))
    print(result.done, "of", result.total))")
      .def(py::init(&makeBatch), py::arg("template"), py::arg("records"), py::kw_only(),
           py::arg("from_") = 1, py::arg("to") = py::none(), py::arg("skip_bad") = false,
           "Fills and checks the label of every record from number from_ to number to (None: "
           "the last); records are Records or dicts (numbered by their place, from 1). "
           "RecordError for the first record that cannot be printed, unless skip_bad: skipped "
           "then lists them. ValueError for a range outside the records.")
      .def_property_readonly(
          "skipped", [](const PyBatch& self) { return self.batch->skipped(); },
          "The records skipped (skip_bad), with why.")
      .def_property_readonly(
          "numbers", [](const PyBatch& self) { return self.batch->numbers(); },
          "The numbers of the records it prints, in order.")
      .def_property_readonly("total", [](const PyBatch& self) { return self.batch->total(); })
      .def_property_readonly(
          "fingerprint", [](const PyBatch& self) { return self.batch->fingerprint(); },
          "What it is made of (template, records and range), to find its job again.")
      .def(
          "label",
          [](const PyBatch& self, std::size_t number) {
            PyLabel label(203);
            py::gil_scoped_release released;
            label.label = self.batch->label(number);
            return label;
          },
          py::arg("number"), "The label of one of its records, by number.")
      .def("print", &print, py::arg("printer"), py::kw_only(), py::arg("journal") = py::none(),
           py::arg("resume") = false, py::arg("name") = "", py::arg("on_progress") = py::none(),
           py::arg("wait") = py::none(), py::arg("connect_timeout") = 5.0,
           py::arg("confirm_timeout") = 30.0,
           R"(Prints the job's records that are not confirmed, in order, to the printer at the address (as Printer.open takes it).

journal: the SQLite file to keep the job in (None: in memory, for this
call only). Without resume a new job is made, and Error raised while the
journal holds an unfinished one of the same template, records and range;
with resume=True that one goes on from its first unconfirmed record.
name: what a person knows the job by (the data file).
on_progress(BatchProgress): after each record, and whenever the printer
makes the batch wait or go on; an exception it raises stops the batch (the
journal marks the job stopped) and is raised here. Ctrl-C does the same.
wait: seconds one label may wait for the printer before Error (None: for
ever). Error when the printer gives up (naming the journal and job to
resume), Delivery.Stopped after stop(). A batch that stopped prints no
more: a new Batch of the same template, records and range goes on with
resume=True.)")
      .def(
          "stop", [](PyBatch& self) { self.batch->stop(); },
          py::call_guard<py::gil_scoped_release>(),
          "Any thread: a print in progress ends with Delivery.Stopped.")
      .def("__repr__", [](const PyBatch& self) {
        return "<orvante.Batch " + std::to_string(self.batch->total()) + " records, " +
               std::to_string(self.batch->skipped().size()) + " skipped>";
      });
}

}  // namespace orvante::python
