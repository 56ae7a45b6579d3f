// Printers and print jobs over HTTP: the status of printers that answer,
// refuse or stay silent; jobs of commands and of templates printed to the
// virtual printer; a job that waits for a printer in a fault; and jobs
// that a restarted service goes on with.

#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <orvante/testing/simulated_printer.hpp>

#include "printer_process.hpp"
#include "service_fixture.hpp"

namespace orvante::serve::testing {
namespace {

using ::testing::HasSubstr;
using namespace std::chrono_literals;
using orvante::testing::PrinterProcess;
using orvante::testing::SimulatedPrinter;
namespace fs = std::filesystem;

const std::string kLabel = "SIZE 20 mm, 10 mm\r\nCLS\r\nBAR 10,10,40,20\r\nPRINT 1\r\n";

// A loopback socket that listens and never answers: a silent printer.
class SilentPrinter {
 public:
  SilentPrinter() {
    socket_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(socket_, 8);
    socklen_t length = sizeof address;
    ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
  }
  ~SilentPrinter() { ::close(socket_); }
  std::string uri() const { return "tcp://127.0.0.1:" + std::to_string(port_); }

 private:
  int socket_ = -1;
  int port_ = 0;
};

json jobOf(httplib::Client& client, std::int64_t id) {
  const auto answer = client.Get("/v1/jobs/" + std::to_string(id));
  return answer && answer->status == 200 ? json::parse(answer->body) : json();
}

std::int64_t submit(httplib::Client& client, const std::string& printer, const std::string& body,
                    const char* type = "text/plain") {
  const auto answer = client.Post("/v1/printers/" + printer + "/jobs", body, type);
  EXPECT_TRUE(answer);
  if (!answer) return 0;
  EXPECT_EQ(answer->status, 202) << answer->body;
  if (answer->status != 202) return 0;
  EXPECT_EQ(answer->get_header_value("Location"), "/v1/jobs/" + json::parse(answer->body)["id"].dump());
  return json::parse(answer->body)["id"].get<std::int64_t>();
}

bool reaches(httplib::Client& client, std::int64_t id, const std::string& state,
             std::chrono::milliseconds limit = 15s) {
  return within(limit, [&] { return jobOf(client, id).value("state", "") == state; });
}

json recordsJob(int count, const std::string& prefix = "SKU-") {
  json records = json::array();
  for (int n = 1; n <= count; ++n) records.push_back({{"sku", prefix + std::to_string(n)}});
  return {{"template",
           {{"size", {30, 15}},
            {"elements", {{{"type", "text"}, {"x", 10}, {"y", 10}, {"font", "2"}, {"text", "${sku} No. ${n:%04d}"}}}}}},
          {"records", records}};
}

TEST(ServePrinters, ListsEachPrintersStatusWithinTheLimitWhateverItDoes) {
  PrinterProcess present;
  SilentPrinter silent;
  ServiceOptions options = loopbackOptions();
  options.printers = {{"shelf", "tcp://127.0.0.1:" + std::to_string(present.port())},
                      {"silent", silent.uri()},
                      {"gone", "tcp://127.0.0.1:1"}};
  RunningService service(options);
  auto client = service.client();
  const auto start = std::chrono::steady_clock::now();
  const auto answer = client.Get("/v1/printers");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms);  // the limit is 500 ms, asked at once
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->status, 200);
  const json list = json::parse(answer->body);
  ASSERT_EQ(list.size(), 3u);
  EXPECT_EQ(list[0]["name"], "shelf");
  EXPECT_EQ(list[0]["status"]["byte"], 0);
  EXPECT_EQ(list[0]["status"]["words"], "ready");
  for (int i : {1, 2}) {
    EXPECT_TRUE(list[i]["status"]["byte"].is_null());
    EXPECT_THAT(list[i]["status"]["words"].get<std::string>(), HasSubstr("unreachable")) << i;
  }
}

TEST(ServeJobs, CommandsAndTemplatesPrintToTheVirtualPrinterEachLabelConfirmed) {
  PrinterProcess printer;
  ServiceOptions options = loopbackOptions();
  options.printers = {{"shelf", "tcp://127.0.0.1:" + std::to_string(printer.port())}};
  RunningService service(options);
  auto client = service.client();

  const auto commands = submit(client, "shelf", kLabel);
  ASSERT_TRUE(reaches(client, commands, "done")) << jobOf(client, commands).dump();
  EXPECT_EQ(jobOf(client, commands)["printed"], 1);
  EXPECT_EQ(jobOf(client, commands)["total"], 1);

  const auto batch = submit(client, "shelf", recordsJob(3).dump(), "application/json");
  ASSERT_TRUE(reaches(client, batch, "done")) << jobOf(client, batch).dump();
  EXPECT_EQ(jobOf(client, batch)["printed"], 3);
  EXPECT_EQ(jobOf(client, batch)["total"], 3);
  EXPECT_TRUE(orvante::testing::eventuallyTrue([&] { return fs::exists(printer.labels() / "label-0004.png"); }));

  // A template job that cannot print is refused whole, nothing queued.
  json bad = recordsJob(2);
  bad["records"][1] = {{"other", "x"}};
  const auto refused = client.Post("/v1/printers/shelf/jobs", bad.dump(), "application/json");
  EXPECT_EQ(refused->status, 400);
  EXPECT_THAT(errorOf(refused), HasSubstr("sku"));
  EXPECT_EQ(client.Post("/v1/printers/shelf/jobs", "", "text/plain")->status, 400);
}

TEST(ServeJobs, WaitForAPrinterInAFaultAndGoOnWhenItIsBack) {
  SimulatedPrinter printer("serve-waiting");
  printer.setStatus(0x04);  // out of paper
  ServiceOptions options = loopbackOptions();
  options.printers = {{"desk", printer.uri()}};
  RunningService service(options);
  auto client = service.client();
  const auto id = submit(client, "desk", kLabel);
  ASSERT_TRUE(reaches(client, id, "waiting"));
  EXPECT_THAT(jobOf(client, id)["reason"].get<std::string>(), HasSubstr("paper"));
  const auto second = submit(client, "desk", kLabel);
  EXPECT_EQ(jobOf(client, second)["state"], "queued");  // one job at a time
  printer.setStatus(0);
  ASSERT_TRUE(reaches(client, second, "done"));
  EXPECT_EQ(jobOf(client, id)["printed"], 1);
  EXPECT_EQ(jobOf(client, id)["state"], "done");
}

TEST(ServeJobs, ARestartedServiceGoesOnWithItsUnfinishedJobs) {
  const fs::path state = fs::path(::testing::TempDir()) / ("serve-state-" + std::to_string(::getpid()));
  for (const char* end : {"", "-wal", "-shm"}) fs::remove(state.string() + end);
  SimulatedPrinter printer("serve-restart");
  ServiceOptions options = loopbackOptions();
  options.printers = {{"desk", printer.uri()}};
  options.state = state;
  std::int64_t finished = 0;
  std::int64_t waiting = 0;
  {
    RunningService service(options);
    auto client = service.client();
    finished = submit(client, "desk", recordsJob(2, "A-").dump(), "application/json");
    ASSERT_TRUE(reaches(client, finished, "done"));
    printer.setStatus(0x01);  // head open
    waiting = submit(client, "desk", recordsJob(3, "B-").dump(), "application/json");
    ASSERT_TRUE(reaches(client, waiting, "waiting"));
    EXPECT_EQ(jobOf(client, waiting)["printed"], 0);
  }
  printer.setStatus(0);
  RunningService again(options);
  auto client = again.client();
  ASSERT_TRUE(reaches(client, waiting, "done")) << jobOf(client, waiting).dump();
  EXPECT_EQ(jobOf(client, waiting)["printed"], 3);
  EXPECT_EQ(jobOf(client, finished)["state"], "done");
  EXPECT_EQ(jobOf(client, finished)["printed"], 2);
  // The finished job's labels went once, not again after the restart;
  // the waiting one's each went (its first maybe twice: it was in flight).
  const std::string received = textOf(printer.received());
  const auto times = [&](const std::string& text) {
    std::size_t found = 0;
    for (std::size_t at = 0; (at = received.find(text, at)) != std::string::npos; ++at) ++found;
    return found;
  };
  EXPECT_EQ(times("A-1 No. 0001"), 1u);
  EXPECT_EQ(times("A-2 No. 0002"), 1u);
  EXPECT_GE(times("B-1 No. 0001"), 1u);
  EXPECT_EQ(times("B-3 No. 0003"), 1u);
  for (const char* end : {"", "-wal", "-shm"}) fs::remove(state.string() + end);
}

}  // namespace
}  // namespace orvante::serve::testing
