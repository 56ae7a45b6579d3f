// orvante batch as a user runs it against the virtual printer: every
// record printed and confirmed, none lost and none skipped when the
// printer is killed and started again or runs out of paper, or when the
// batch itself is killed and resumed; records that cannot print stop it
// before anything is sent; --preview draws the labels with no printer.

#include <cairo.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <fstream>
#include <map>

#include "printer_process.hpp"
#include "tool_run.hpp"

using namespace orvante::testing;

namespace {

const std::string kNumbered = R"({"size": [50, 30], "gap": 2, "elements": [
  {"type": "text", "x": 10, "y": 10, "font": "3", "text": "No. ${n:%06d}"},
  {"type": "text", "x": 10, "y": 50, "font": "2", "text": "${name}"}]})";

// A folder with the template and `count` records, record 3 holding `third`.
struct BatchFiles {
  explicit BatchFiles(int count, const std::string& third = "") {
    char name[] = "/tmp/orvante-batch-XXXXXX";
    folder = mkdtemp(name);
    std::ofstream(folder / "label.json") << kNumbered;
    std::ofstream csv(folder / "orders.csv");
    csv << "name\n";
    for (int n = 1; n <= count; ++n) csv << (n == 3 && !third.empty() ? third : "Name " + std::to_string(n)) << '\n';
  }
  ~BatchFiles() { fs::remove_all(folder); }
  std::string arguments() const {
    return (folder / "label.json").string() + " " + (folder / "orders.csv").string();
  }
  fs::path journal() const { return folder / "orders.csv.journal"; }
  fs::path folder;
};

// The tool running in the background.
class BatchProcess {
 public:
  BatchProcess(const PrinterProcess& printer, const BatchFiles& files, std::vector<std::string> extra = {})
      : out_(files.folder / "tool.out"), err_(files.folder / "tool.err") {
    std::vector<std::string> args{ORVANTE_CLI, "--printer", "tcp://127.0.0.1:" + std::to_string(printer.port()),
                                  "batch", (files.folder / "label.json").string(),
                                  (files.folder / "orders.csv").string()};
    args.insert(args.end(), extra.begin(), extra.end());
    pid_ = spawnProcess(std::move(args), [&](posix_spawn_file_actions_t& actions) {
      posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
      posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    });
    EXPECT_GT(pid_, 0);
  }
  ~BatchProcess() {
    if (pid_ > 0) kill(SIGKILL);
  }
  // The exit status, or -1 for a signal.
  int wait() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  void kill(int signal) {
    ::kill(pid_, signal);
    wait();
  }
  std::string out() const { return readFile(out_); }
  std::string err() const { return readFile(err_); }

 private:
  fs::path out_, err_;
  pid_t pid_ = -1;
};

std::size_t labelsPrinted(const PrinterProcess& printer) {
  const std::string lines = printer.printed();
  std::size_t count = 0;
  for (std::size_t at = 0; (at = lines.find(".png\n", at)) != std::string::npos; ++at) ++count;
  return count;
}

// How often each record's label was printed, from the printers' journals:
// a PRINT that printed counts the record of the last TEXT "No. NNNNNN" on
// its connection.
std::map<int, int> printedRecords(const std::vector<std::string>& journals) {
  std::map<int, int> printed;
  for (const std::string& journal : journals) {
    std::map<std::string, int> lastOn;
    std::istringstream lines(journal);
    for (std::string line; std::getline(lines, line);) {
      const auto at = line.find("\"connection\":");
      const std::string connection = line.substr(at + 13, line.find(',', at) - at - 13);
      if (const auto number = line.find("\"No. "); line.find("\"command\":\"TEXT\"") != std::string::npos &&
                                                   number != std::string::npos) {
        lastOn[connection] = std::stoi(line.substr(number + 5, 6));
      }
      if (line.find("\"command\":\"PRINT\"") != std::string::npos &&
          line.find("\"outcome\":\"printed\"") != std::string::npos) {
        ++printed[lastOn[connection]];
      }
    }
  }
  return printed;
}

// Every record of 1..count printed, and at most one of them twice.
void expectEachPrintedAtMostOneTwice(const std::map<int, int>& printed, int count) {
  int twice = 0;
  for (int n = 1; n <= count; ++n) {
    const auto found = printed.find(n);
    ASSERT_NE(found, printed.end()) << "record " << n << " was never printed";
    EXPECT_LE(found->second, 2) << n;
    twice += found->second == 2;
  }
  EXPECT_LE(twice, 1);
  EXPECT_EQ(printed.size(), static_cast<std::size_t>(count));
}

std::string sqlite(const fs::path& database, const std::string& query) {
  const fs::path out = database.string() + ".answer";
  std::system(("sqlite3 '" + database.string() + "' \"" + query + "\" > '" + out.string() + "'").c_str());
  return readFile(out);
}

}  // namespace

TEST(BatchCli, EveryRecordIsPrintedOnceAndConfirmedWithTheJournalBesideTheData) {
  PrinterProcess printer;
  BatchFiles files(20);
  const ToolRun run = runTool("--printer tcp://127.0.0.1:" + std::to_string(printer.port()) +
                              " batch " + files.arguments());
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "printed 20 of 20 labels (20 in this run), each confirmed by the printer\n");
  ASSERT_TRUE(eventuallyTrue([&] { return labelsPrinted(printer) == 20; }));
  const auto printed = printedRecords({printer.journal()});
  for (int n = 1; n <= 20; ++n) EXPECT_EQ(printed.count(n) ? printed.at(n) : 0, 1) << n;
  EXPECT_EQ(sqlite(files.journal(), "SELECT state, printed, total FROM jobs"), "done|20|20\n");
  // A second run of a finished batch is a new job; --resume has nothing to do.
  const ToolRun resume = runTool("--printer tcp://127.0.0.1:1 batch " + files.arguments() + " --resume");
  EXPECT_EQ(resume.status, 1);
  EXPECT_EQ(resume.err, "orvante: " + files.journal().string() +
                            " holds no unfinished batch of this template, data and range: nothing "
                            "to resume\n");
}

TEST(BatchCli, ARecordThatCannotPrintStopsTheBatchBeforeAnythingIsSent) {
  PrinterProcess printer;
  BatchFiles files(5, "\"price ~!F\"");
  const std::string at = "--printer tcp://127.0.0.1:" + std::to_string(printer.port());
  const ToolRun refused = runTool(at + " batch " + files.arguments());
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "orvante: " + (files.folder / "orders.csv").string() +
                             " line 4: elements[1].text: the content holds \"~!\" at position 7: "
                             "the printer would run it as a command (nothing was sent)\n");
  EXPECT_EQ(printer.journal(), "");
  EXPECT_FALSE(fs::exists(files.journal()));

  const ToolRun skipping = runTool(at + " batch " + files.arguments() + " --skip-bad");
  EXPECT_EQ(skipping.status, 1);
  EXPECT_EQ(skipping.err, "orvante: " + (files.folder / "orders.csv").string() +
                              " record 3 (line 4) skipped: elements[1].text: the content holds "
                              "\"~!\" at position 7: the printer would run it as a command\n"
                              "orvante: 1 records skipped (see above and the journal)\n");
  EXPECT_EQ(skipping.out, "printed 4 of 4 labels (4 in this run), each confirmed by the printer\n");
  EXPECT_EQ(sqlite(files.journal(), "SELECT number, state FROM labels WHERE state <> 'confirmed'"),
            "3|skipped\n");
}

TEST(BatchCli, PreviewDrawsEachLabelWithNoPrinter) {
  BatchFiles files(2);
  std::ofstream(files.folder / "label.json") << R"({"size": [50, 30], "elements": [
    {"type": "box", "x": 4, "y": 4, "x2": 396, "y2": 236, "thickness": 4},
    {"type": "qr", "x": 300, "y": 20, "cell": 4, "errorCorrection": "L", "data": "${n}"},
    {"type": "reverse", "x": 20, "y": 180, "width": 100, "height": 40}]})";
  const fs::path preview = files.folder / "preview";
  const ToolRun run = runTool("--printer tcp://127.0.0.1:1 batch " + files.arguments() +
                              " --preview " + preview.string());
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, (preview / "label-0001.png").string() + "\n" +
                         (preview / "label-0002.png").string() + "\n");
  cairo_surface_t* png = cairo_image_surface_create_from_png((preview / "label-0002.png").c_str());
  ASSERT_EQ(cairo_surface_status(png), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_image_surface_get_width(png), 400);
  EXPECT_EQ(cairo_image_surface_get_height(png), 240);
  const auto black = [&](int x, int y) {
    const unsigned char* row = cairo_image_surface_get_data(png) + y * cairo_image_surface_get_stride(png);
    return (reinterpret_cast<const std::uint32_t*>(row)[x] & 0xFFFFFF) == 0;
  };
  EXPECT_TRUE(black(4, 4) && black(7, 100) && black(395, 235));  // the box's outline
  EXPECT_FALSE(black(8, 100) || black(3, 3) || black(200, 100));
  EXPECT_TRUE(black(300, 20) && black(327, 47));  // the QR code's finder, 7 cells of 4
  EXPECT_FALSE(black(304, 24));
  EXPECT_TRUE(black(20, 181) && black(119, 219));  // the reversed area
  EXPECT_FALSE(fs::exists(files.journal()));
  cairo_surface_destroy(png);
}

TEST(BatchCli, APrinterKilledMidBatchAndStartedAgainOnTheSamePortLosesNoLabel) {
  PrinterProcess first;
  BatchFiles files(300);
  BatchProcess batch(first, files);
  ASSERT_TRUE(eventuallyTrue([&] { return labelsPrinted(first) >= 100; }));
  first.stop();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  PrinterProcess second({"--listen", "127.0.0.1:" + std::to_string(first.port()), "--out",
                         first.labels().string()});
  EXPECT_EQ(batch.wait(), 0) << batch.err();
  EXPECT_NE(batch.err().find("orvante: waiting: "), std::string::npos) << batch.err();
  EXPECT_NE(batch.err().find("orvante: printing again"), std::string::npos) << batch.err();
  expectEachPrintedAtMostOneTwice(printedRecords({first.journal(), second.journal()}), 300);
  EXPECT_EQ(sqlite(files.journal(), "SELECT state, printed, total FROM jobs"), "done|300|300\n");
}

TEST(BatchCli, ABatchKilledMidwayResumesFromItsFirstUnconfirmedRecord) {
  PrinterProcess printer;
  BatchFiles files(300);
  {
    BatchProcess batch(printer, files);
    ASSERT_TRUE(eventuallyTrue([&] { return labelsPrinted(printer) >= 100; }));
    batch.kill(SIGKILL);
  }
  const std::string at = "--printer tcp://127.0.0.1:" + std::to_string(printer.port());
  // Without --resume the unfinished batch is not started again from the top.
  const ToolRun again = runTool(at + " batch " + files.arguments());
  EXPECT_EQ(again.status, 1);
  EXPECT_NE(again.err.find("holds an unfinished batch"), std::string::npos) << again.err;
  const ToolRun resumed = runTool(at + " batch " + files.arguments() + " --resume");
  EXPECT_EQ(resumed.status, 0) << resumed.err;
  EXPECT_TRUE(resumed.out.starts_with("printed 300 of 300 labels")) << resumed.out;
  ASSERT_TRUE(eventuallyTrue([&] { return labelsPrinted(printer) >= 300; }));
  expectEachPrintedAtMostOneTwice(printedRecords({printer.journal()}), 300);
  EXPECT_EQ(sqlite(files.journal(), "SELECT count(*) FROM labels WHERE sends > 1 OR maybe_twice"),
            sqlite(files.journal(), "SELECT count(*) FROM labels WHERE maybe_twice"));
}

TEST(BatchCli, PaperOutMidBatchMakesItWaitAndSayWhyThenGoOn) {
  PrinterProcess printer;
  BatchFiles files(60);
  BatchProcess batch(printer, files);
  ASSERT_TRUE(eventuallyTrue([&] { return labelsPrinted(printer) >= 20; }));
  printer.control("status 04\n");
  ASSERT_TRUE(eventuallyTrue([&] { return batch.err().find("waiting: out of paper") != std::string::npos; }))
      << batch.err();
  const std::size_t whileOut = labelsPrinted(printer);
  std::this_thread::sleep_for(std::chrono::milliseconds(400));
  EXPECT_LE(labelsPrinted(printer), whileOut + 1);  // it waits
  printer.control("status 00\n");
  EXPECT_EQ(batch.wait(), 0) << batch.err();
  EXPECT_EQ(batch.err(), "orvante: waiting: out of paper\norvante: printing again (" +
                             batch.err().substr(batch.err().find('(') + 1));
  ASSERT_TRUE(eventuallyTrue([&] { return labelsPrinted(printer) >= 60; }));
  expectEachPrintedAtMostOneTwice(printedRecords({printer.journal()}), 60);
}
