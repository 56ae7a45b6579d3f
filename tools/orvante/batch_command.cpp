// orvante batch: a template's label for each record of a data file, sent
// through the second door so that none is lost and none skipped, with a
// journal to resume from; or, with --preview, drawn as PNG files by the
// virtual printer's engine, with no printer at all.

#include <csignal>
#include <filesystem>
#include <iostream>

#include <orvante/batch.hpp>
#include <orvante/vprinter/engine.hpp>

#include "batch_progress.hpp"
#include "cli.hpp"

namespace orvante::cli {
namespace {

namespace fs = std::filesystem;

struct BatchSettings {
  std::string templateFile;
  std::string dataFile;
  std::string preview;
  std::string journal;
  bool resume = false;
  bool skipBad = false;
  std::size_t from = 1;
  std::size_t to = 0;
  double waitSeconds = 0;
};

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

// Each label as the virtual printer draws it: DIR/label-NNNN.png by
// record number, its path on standard output.
void writePreview(const Batch& batch, int dpi, const fs::path& folder) {
  if (dpi != 203 && dpi != 300) {
    throw std::invalid_argument("a preview is drawn at 203 or 300 dpi, not the template's " +
                                std::to_string(dpi));
  }
  fs::create_directories(folder);
  vprinter::Options options;
  options.dpi = dpi;
  vprinter::Engine engine(options);
  for (std::size_t number : batch.numbers()) {
    engine.feed(1, batch.label(number).bytes());
    const auto printed = engine.takePrinted();
    if (printed.empty()) throw Error("the virtual printer drew nothing for record " + std::to_string(number));
    char name[32];
    std::snprintf(name, sizeof name, "label-%04zu.png", number);
    printed.front().writePng(folder / name);
    std::cout << (folder / name).string() << '\n';
  }
}

std::string describe(const SkippedRecord& skipped) {
  return "record " + std::to_string(skipped.number) + " (line " + std::to_string(skipped.line) +
         ") skipped: " + skipped.reason;
}

// The job to print: the unfinished one with --resume, else a new one.
std::int64_t jobFor(const Batch& batch, JobStore& store, const BatchSettings& settings,
                    const Options& options) {
  const auto unfinished = batch.unfinishedJob(store);
  if (settings.resume) {
    if (!unfinished) {
      throw Error(settings.journal + " holds no unfinished batch of this template, data and range: "
                                     "nothing to resume");
    }
    return *unfinished;
  }
  if (unfinished) {
    const Job job = *store.job(*unfinished);
    throw Error(settings.journal + " holds an unfinished batch of this template, data and range (job " +
                std::to_string(job.id) + ", " + std::to_string(job.printed) + " of " +
                std::to_string(job.total) + " printed): --resume goes on from its first unconfirmed "
                "record");
  }
  return batch.newJob(store, options.printer, settings.dataFile);
}

void runBatch(const BatchSettings& settings, const Options& options) {
  const Template labels = Template::load(settings.templateFile);
  std::vector<Record> records;
  try {
    records = readRecords(settings.dataFile);
  } catch (const std::invalid_argument& bad) {
    throw std::invalid_argument(settings.dataFile + " " + bad.what());
  }
  if (records.empty()) throw std::invalid_argument(settings.dataFile + " holds no records");
  std::optional<Batch> batch;
  try {
    batch.emplace(labels, std::move(records), BatchOptions{settings.from, settings.to, settings.skipBad});
  } catch (const RecordError& refused) {
    throw std::invalid_argument(settings.dataFile + " " + refused.what() + " (nothing was sent)");
  }
  for (const SkippedRecord& skipped : batch->skipped()) {
    std::cerr << "orvante: " << settings.dataFile << " " << describe(skipped) << '\n';
  }
  const bool allRecords = batch->skipped().empty();
  if (!settings.preview.empty()) {
    writePreview(*batch, labels.dpi(), settings.preview);
    if (!allRecords) throw Error(std::to_string(batch->skipped().size()) + " records skipped");
    return;
  }

  JobStore store(settings.journal);
  const std::int64_t job = jobFor(*batch, store, settings, options);
  DeliveryOptions waiting;
  waiting.connectTimeout = std::chrono::milliseconds(options.timeoutMs);
  waiting.giveUpAfter = std::chrono::milliseconds(static_cast<long long>(settings.waitSeconds * 1000));
  Delivery delivery(options.printer, waiting);
  delivery.stopWhen([] { return interrupted != 0; });
  std::signal(SIGINT, onInterrupt);
  std::signal(SIGTERM, onInterrupt);

  BatchProgressBar bar(stderr);
  BatchResult result;
  try {
    result = batch->print(delivery, store, job, [&](const BatchProgress& progress) {
      if (interrupted) batch->stop();
      bar.show(progress);
    });
  } catch (const Error& ended) {
    bar.finish();
    const auto where = store.job(job);
    throw Error(std::string(where ? where->reason : ended.what()) + " (journal: " +
                settings.journal + ", job " + std::to_string(job) + "; --resume goes on)");
  }
  bar.finish();
  const Job done = *store.job(job);
  for (std::size_t number : result.maybeTwice) {
    std::cerr << "orvante: record " << number << " was in flight at a fault and may have printed twice\n";
  }
  std::cout << "printed " << done.printed << " of " << done.total << " labels (" << result.printed
            << " in this run), each confirmed by the printer\n";
  if (!allRecords) {
    throw Error(std::to_string(batch->skipped().size()) + " records skipped (see above and the journal)");
  }
}

}  // namespace

void addBatchCommand(CLI::App& app, const Options& options) {
  auto* batch = app.add_subcommand(
      "batch", "print a template's label for each record of a CSV or JSON-lines file");
  auto settings = std::make_shared<BatchSettings>();
  batch->add_option("template", settings->templateFile, "the label template (JSON)")->required();
  batch->add_option("data", settings->dataFile,
                    "the records: CSV with a header row, or JSON lines (*.jsonl)")
      ->required();
  batch->add_option("--preview", settings->preview,
                    "draw each label as DIR/label-NNNN.png instead of printing (no printer needed)");
  batch->add_option("--journal", settings->journal,
                    "the batch journal, an SQLite file (default: the data file's name + .journal)");
  batch->add_flag("--resume", settings->resume,
                  "go on with the journal's unfinished batch from its first unconfirmed record");
  batch->add_option("--from", settings->from, "the first record to print, from 1")
      ->check(CLI::PositiveNumber);
  batch->add_option("--to", settings->to, "the last record to print (default: the last)")
      ->check(CLI::PositiveNumber);
  batch->add_flag("--skip-bad", settings->skipBad,
                  "print the other records when some cannot be printed, and list those");
  batch->add_option("--wait", settings->waitSeconds,
                    "give up after waiting this many seconds for the printer (0: wait for ever)")
      ->check(CLI::NonNegativeNumber);
  batch->callback([settings, &options] {
    if (settings->journal.empty()) settings->journal = settings->dataFile + ".journal";
    runBatch(*settings, options);
  });
}

}  // namespace orvante::cli
