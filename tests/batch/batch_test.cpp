// orvante::Batch and orvante::JobStore against a simulated printer: every
// record checked before the first label goes, each label confirmed and
// journaled, a printer in a fault waited out and the label in flight
// marked, a stopped or failed batch resumed from its first unconfirmed
// record, and a journal that a crash at any instant leaves consistent.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include <orvante/batch.hpp>
#include <orvante/testing/simulated_printer.hpp>

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

const DeliveryOptions kQuick{1s, 1s, 20ms, 100ms, Printer::Timeout::zero()};

const Template kLayout = Template::parse(R"({"size": [50, 30], "elements": [
    {"type": "text", "x": 10, "y": 10, "font": "3", "text": "${name} No. ${n:%04d}"}]})");

std::vector<Record> recordsOf(int count, const std::string& bad = "") {
  std::string csv = "name\n";
  for (int n = 1; n <= count; ++n) csv += (n == 3 && !bad.empty() ? bad : "Name " + std::to_string(n)) + "\n";
  return readCsv(csv);
}

// A journal of its own for each test.
struct Journal {
  Journal() : path(fs::path(::testing::TempDir()) / ("batch-" + std::to_string(::getpid()) + "-" +
                                                      ::testing::UnitTest::GetInstance()->current_test_info()->name())) {
    fs::remove(path);
  }
  ~Journal() {
    for (const char* end : {"", "-wal", "-shm"}) fs::remove(path.string() + end);
  }
  fs::path path;
};

// How often the record's label stands in the printer's input.
std::size_t printedTimes(const SimulatedPrinter& printer, int number) {
  const std::string all = textOf(printer.received());
  char mark[32];
  std::snprintf(mark, sizeof mark, "No. %04d\"", number);
  std::size_t found = 0;
  for (std::size_t at = 0; (at = all.find(mark, at)) != std::string::npos; ++at) ++found;
  return found;
}

}  // namespace

TEST(Batch, EachRecordIsSentConfirmedAndJournaledInOrder) {
  SimulatedPrinter printer("batch-in-order");
  Journal journal;
  JobStore store(journal.path);
  Batch batch(kLayout, recordsOf(4));
  const auto job = batch.newJob(store, printer.uri(), "names.csv");
  EXPECT_FALSE(batch.unfinishedJob(store) != job);
  Delivery delivery(printer.uri(), kQuick);
  std::vector<std::size_t> done;
  const BatchResult result = batch.print(delivery, store, job, [&](const BatchProgress& progress) {
    EXPECT_EQ(progress.total, 4u);
    EXPECT_TRUE(progress.waiting.empty());
    done.push_back(progress.done);
  });
  EXPECT_EQ(done, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
  EXPECT_EQ(result.printed, 4u);
  EXPECT_TRUE(result.maybeTwice.empty());

  Bytes expected = bytesOf("\x1B!?");  // a new connection is asked first
  for (std::size_t n = 1; n <= 4; ++n) {
    const Bytes label = batch.label(n).bytes();
    expected.insert(expected.end(), label.begin(), label.end());
    expected.insert(expected.end(), {0x1B, '!', '?'});  // the confirmation
  }
  EXPECT_EQ(printer.received(), expected);
  const Job finished = *store.job(job);
  EXPECT_EQ(finished.state, JobState::Done);
  EXPECT_EQ(finished.printed, 4u);
  EXPECT_EQ(finished.name, "names.csv");
  for (const JobLabel& label : store.labels(job)) {
    EXPECT_EQ(label.state, LabelState::Confirmed);
    EXPECT_EQ(label.sends, 1);
    EXPECT_EQ(label.line, label.number + 1);
  }
  EXPECT_FALSE(batch.unfinishedJob(store));
}

TEST(Batch, ARecordThatCannotPrintStopsTheBatchBeforeItStartsOrIsSkippedAndListed) {
  const std::string hostile = "\"Bad \"\"name\r\nKILL\"";
  try {
    Batch batch(kLayout, recordsOf(5, hostile));
    FAIL() << "accepted";
  } catch (const RecordError& refused) {
    EXPECT_EQ(refused.line(), 4u);
    EXPECT_EQ(refused.reason(),
              "elements[0].text: the content holds a carriage return at position 10: a command "
              "line cannot carry it");
  }
  SimulatedPrinter printer("batch-skips");
  Journal journal;
  JobStore store(journal.path);
  Batch batch(kLayout, recordsOf(5, hostile), {2, 4, true});
  EXPECT_EQ(batch.numbers(), (std::vector<std::size_t>{2, 4}));
  ASSERT_EQ(batch.skipped().size(), 1u);
  EXPECT_EQ(batch.skipped()[0].number, 3u);
  const auto job = batch.newJob(store, printer.uri(), "names.csv");
  Delivery delivery(printer.uri(), kQuick);
  batch.print(delivery, store, job);
  EXPECT_EQ(printedTimes(printer, 1) + printedTimes(printer, 3) + printedTimes(printer, 5), 0u);
  EXPECT_EQ(printedTimes(printer, 2) + printedTimes(printer, 4), 2u);
  const auto labels = store.labels(job);
  ASSERT_EQ(labels.size(), 3u);
  EXPECT_EQ(labels[1].state, LabelState::Skipped);
  EXPECT_EQ(labels[1].reason, batch.skipped()[0].reason);
  EXPECT_EQ(store.job(job)->total, 2u);
  EXPECT_THROW(Batch(kLayout, recordsOf(5), {6, 0}), std::invalid_argument);
}

TEST(Batch, PaperOutMidBatchWaitsSaysWhyAndGoesOnWithNoneSkipped) {
  SimulatedPrinter printer("batch-paper-out");
  Journal journal;
  JobStore store(journal.path);
  Batch batch(kLayout, recordsOf(6));
  const auto job = batch.newJob(store, printer.uri(), "names.csv");
  Delivery delivery(printer.uri(), kQuick);
  std::vector<std::string> reasons;
  std::vector<JobState> states;
  std::thread clearing;
  const BatchResult result = batch.print(delivery, store, job, [&](const BatchProgress& progress) {
    if (progress.done == 3 && progress.waiting.empty() && !clearing.joinable()) {
      printer.setStatus(0x04);  // out of paper as the fourth label goes
      clearing = std::thread([&] {
        std::this_thread::sleep_for(300ms);
        printer.setStatus(0x00);
      });
    }
    if (reasons.empty() || reasons.back() != progress.waiting) {
      reasons.push_back(progress.waiting);
      states.push_back(store.job(job)->state);
    }
  });
  clearing.join();
  EXPECT_EQ(reasons, (std::vector<std::string>{"", "out of paper", ""}));
  EXPECT_EQ(states, (std::vector<JobState>{JobState::Printing, JobState::Waiting, JobState::Printing}));
  // The fourth went again once the paper was in: named, the only one.
  EXPECT_EQ(result.maybeTwice, (std::vector<std::size_t>{4}));
  for (int n = 1; n <= 6; ++n) EXPECT_EQ(printedTimes(printer, n), n == 4 ? 2u : 1u) << n;
  EXPECT_EQ(store.job(job)->state, JobState::Done);
}

TEST(Batch, AStoppedOrFailedBatchGoesOnFromItsFirstUnconfirmedRecord) {
  SimulatedPrinter printer("batch-resumes");
  Journal journal;
  {
    JobStore store(journal.path);
    Batch batch(kLayout, recordsOf(5));
    const auto job = batch.newJob(store, printer.uri(), "names.csv");
    Delivery delivery(printer.uri(), kQuick);
    EXPECT_THROW(batch.print(delivery, store, job,
                             [&](const BatchProgress& progress) {
                               if (progress.done == 2) batch.stop();
                             }),
                 Delivery::Stopped);
    EXPECT_EQ(store.job(job)->state, JobState::Stopped);
    EXPECT_EQ(store.job(job)->reason,
              "the batch was stopped; record 3 (line 4) is the first not confirmed");
  }
  {
    // Paper out for good: the batch gives up after its time limit.
    printer.setStatus(0x04);
    JobStore store(journal.path);
    Batch batch(kLayout, recordsOf(5));
    const auto job = batch.unfinishedJob(store);
    ASSERT_TRUE(job);
    DeliveryOptions patient = kQuick;
    patient.giveUpAfter = 200ms;
    Delivery delivery(printer.uri(), patient);
    EXPECT_THROW(batch.print(delivery, store, *job), Error);
    EXPECT_EQ(store.job(*job)->state, JobState::Failed);
    EXPECT_TRUE(store.job(*job)->reason.ends_with(
        "out of paper; record 3 (line 4) is the first not confirmed"))
        << store.job(*job)->reason;
  }
  printer.setStatus(0x00);
  JobStore store(journal.path);
  Batch batch(kLayout, recordsOf(5));
  const auto job = batch.unfinishedJob(store);
  ASSERT_TRUE(job);
  Delivery delivery(printer.uri(), kQuick);
  const BatchResult result = batch.print(delivery, store, *job);
  EXPECT_EQ(result.printed, 3u);
  // Record 3 went to the printer out of paper before: it may print twice.
  EXPECT_EQ(result.maybeTwice, (std::vector<std::size_t>{3}));
  for (int n = 1; n <= 5; ++n) EXPECT_GE(printedTimes(printer, n), 1u) << n;
  EXPECT_EQ(store.job(*job)->state, JobState::Done);
  EXPECT_EQ(store.job(*job)->printed, 5u);
  // Another range, or other data, is another batch.
  EXPECT_NE(Batch(kLayout, recordsOf(5), {2, 0}).fingerprint(), batch.fingerprint());
  EXPECT_NE(Batch(kLayout, recordsOf(6)).fingerprint(), batch.fingerprint());
}

TEST(JobStore, AProcessKilledAtAnyInstantLeavesItConsistentAndReadableBySqlite3) {
  Journal journal;
  constexpr int kLabels = 400;
  for (int round = 0; round < 3; ++round) {
    // The child says when its job is in, so a slow machine still kills it
    // in the middle of its writes.
    int started[2];
    ASSERT_EQ(pipe(started), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      close(started[0]);
      // Writes as a batch does, until it is killed.
      JobStore store(journal.path);
      std::vector<JobLabel> labels(kLabels);
      for (int n = 0; n < kLabels; ++n) labels[n].number = labels[n].line = n + 1;
      Job crash;
      crash.kind = "batch";
      crash.name = "crash";
      const auto job = store.add(crash, labels);
      store.setState(job, JobState::Printing);
      const char ready = 1;
      (void)!write(started[1], &ready, 1);
      for (int n = 1; n <= kLabels; ++n) {
        store.sending(job, n);
        store.confirmed(job, n, 0, false);
      }
      _exit(0);
    }
    close(started[1]);
    char ready = 0;
    (void)!read(started[0], &ready, 1);
    close(started[0]);
    std::this_thread::sleep_for(std::chrono::milliseconds(5 + 20 * round));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  JobStore store(journal.path);
  const auto jobs = store.jobs();
  ASSERT_FALSE(jobs.empty());
  for (const Job& job : jobs) {
    // Confirmed labels first, then at most the one in flight, then pending ones.
    const auto labels = store.labels(job.id);
    ASSERT_EQ(labels.size(), static_cast<std::size_t>(kLabels));
    std::size_t confirmed = 0, sent = 0;
    for (const JobLabel& label : labels) {
      if (label.state == LabelState::Confirmed) {
        EXPECT_EQ(sent, 0u);
        EXPECT_EQ(label.number, ++confirmed);
      } else if (label.state == LabelState::Sent) {
        EXPECT_EQ(label.number, confirmed + ++sent);
      }
    }
    EXPECT_LE(sent, 1u);
    EXPECT_EQ(job.printed, confirmed);
  }
  const std::string command = "sqlite3 '" + journal.path.string() +
                              "' 'PRAGMA integrity_check; PRAGMA journal_mode; "
                              "SELECT count(*) FROM labels' > '" + journal.path.string() + ".out'";
  ASSERT_EQ(std::system(command.c_str()), 0);
  std::ifstream out(journal.path.string() + ".out");
  const std::string answer(std::istreambuf_iterator<char>(out), {});
  EXPECT_EQ(answer, "ok\nwal\n" + std::to_string(kLabels * jobs.size()) + "\n");
  fs::remove(journal.path.string() + ".out");
}
