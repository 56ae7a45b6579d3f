// The web page in a real browser: Debian's Chromium, headless, driven
// through its DevTools protocol on a pipe (--remote-debugging-pipe: JSON
// messages ended by a NUL byte on its descriptors 3 and 4), so a test
// types into the page as a person does and reads the screen back.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "printer_process.hpp"
#include "service_fixture.hpp"
#include "spawn.hpp"

extern char** environ;

namespace orvante::serve::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

const char* const kChromium = "/usr/bin/chromium";

std::string fromBase64(const std::string& text) {
  std::string out;
  unsigned value = 0;
  int bits = 0;
  for (const char c : text) {
    int digit = -1;
    if (c >= 'A' && c <= 'Z') digit = c - 'A';
    if (c >= 'a' && c <= 'z') digit = c - 'a' + 26;
    if (c >= '0' && c <= '9') digit = c - '0' + 52;
    if (c == '+') digit = 62;
    if (c == '/') digit = 63;
    if (digit < 0) continue;
    value = (value << 6) | static_cast<unsigned>(digit);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out += static_cast<char>((value >> bits) & 0xFF);
    }
  }
  return out;
}

class Browser {
 public:
  Browser() {
    char folder[] = "/tmp/serve-chromium-XXXXXX";
    profile_ = mkdtemp(folder);
    int toBrowser[2];
    int fromBrowser[2];
    EXPECT_EQ(pipe2(toBrowser, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(fromBrowser, O_CLOEXEC), 0);
    std::vector<std::string> args{kChromium, "--headless", "--no-sandbox", "--disable-gpu",
                                  "--disable-quic", "--no-first-run", "--disable-background-networking",
                                  "--disable-component-update", "--disable-sync", "--remote-debugging-pipe",
                                  "--window-size=1280,900", "--user-data-dir=" + profile_.string(),
                                  "about:blank"};
    pid_ = orvante::testing::spawnProcess(std::move(args), [&](posix_spawn_file_actions_t& actions) {
      posix_spawn_file_actions_adddup2(&actions, toBrowser[0], 3);
      posix_spawn_file_actions_adddup2(&actions, fromBrowser[1], 4);
      posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
      posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    });
    EXPECT_GT(pid_, 0);
    close(toBrowser[0]);
    close(fromBrowser[1]);
    out_ = toBrowser[1];
    in_ = fromBrowser[0];
  }

  // Chromium is asked to close, so that it ends its helper processes too;
  // killed only where it does not.
  ~Browser() {
    if (pid_ > 0) {
      std::string close = json{{"id", ++lastId_}, {"method", "Browser.close"}}.dump();
      close.push_back('\0');
      (void)!write(out_, close.data(), close.size());
      if (!orvante::testing::eventuallyTrue([&] { return waitpid(pid_, nullptr, WNOHANG) != 0; })) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
      }
    }
    close(out_);
    close(in_);
    orvante::testing::removeTree(profile_);
  }

  // Sends a command (to the page's session once attached) and returns its
  // result; events in between are passed over.
  json call(const std::string& method, json params = json::object()) {
    json message = {{"id", ++lastId_}, {"method", method}, {"params", std::move(params)}};
    if (!session_.empty()) message["sessionId"] = session_;
    std::string text = message.dump();
    text.push_back('\0');
    EXPECT_EQ(write(out_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    const auto end = std::chrono::steady_clock::now() + 20s;
    while (std::chrono::steady_clock::now() < end) {
      const auto zero = buffer_.find('\0');
      if (zero == std::string::npos) {
        pollfd ready{in_, POLLIN, 0};
        if (poll(&ready, 1, 200) <= 0) continue;
        char chunk[65536];
        const ssize_t got = read(in_, chunk, sizeof chunk);
        if (got <= 0) break;
        buffer_.append(chunk, static_cast<std::size_t>(got));
        continue;
      }
      const json answer = json::parse(buffer_.substr(0, zero), nullptr, false);
      buffer_.erase(0, zero + 1);
      if (answer.is_object() && answer.value("id", 0) == lastId_) {
        EXPECT_FALSE(answer.contains("error")) << method << ": " << answer.dump();
        return answer.value("result", json::object());
      }
    }
    ADD_FAILURE() << "Chromium did not answer " << method;
    return json::object();
  }

  void open(const std::string& url) {
    const std::string target = call("Target.createTarget", {{"url", url}}).value("targetId", "");
    session_ = call("Target.attachToTarget", {{"targetId", target}, {"flatten", true}}).value("sessionId", "");
  }

  json evaluate(const std::string& expression) {
    return call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}})["result"]
        .value("value", json());
  }

  Picture screenshot() {
    return pictureOf(fromBase64(call("Page.captureScreenshot", {{"format", "png"}}).value("data", "")));
  }

 private:
  fs::path profile_;
  pid_t pid_ = -1;
  int out_ = -1;
  int in_ = -1;
  int lastId_ = 0;
  std::string buffer_;
  std::string session_;
};

// Ink inside the preview's picture on the screen.
std::size_t previewInk(Browser& browser) {
  const json box = browser.evaluate(
      "(() => { const r = document.getElementById('preview').getBoundingClientRect();"
      " return [r.left, r.top, r.right, r.bottom]; })()");
  const Picture screen = browser.screenshot();
  if (!box.is_array() || box.size() != 4) return 0;
  return screen.inkIn(box[0].get<int>() + 2, box[1].get<int>() + 2, box[2].get<int>() - 2,
                      box[3].get<int>() - 2);
}

int drawn(Browser& browser) {
  const json value = browser.evaluate("document.getElementById('preview').dataset.drawn");
  return value.is_string() ? std::stoi(value.get<std::string>()) : -1;
}

TEST(ServeWebPage, DrawsTheExamplesPreviewAndRedrawsItAsOneTypes) {
  if (!fs::exists(kChromium)) GTEST_SKIP() << "no Chromium";
  RunningService service;
  Browser browser;
  browser.open(service.base() + "/");
  ASSERT_TRUE(within(20s, [&] { return drawn(browser) >= 1; })) << "the example's preview was not drawn";
  EXPECT_EQ(browser.evaluate("document.getElementById('count').textContent"), "1 label");
  const std::size_t before = previewInk(browser);
  EXPECT_GT(before, 2000u) << "the preview is blank";

  // A bar typed before PRINT: a large black area more.
  browser.evaluate(
      "(() => { const t = document.getElementById('commands'); t.focus();"
      " const at = t.value.indexOf('PRINT'); t.setSelectionRange(at, at); })()");
  browser.call("Input.insertText", {{"text", "BAR 0,0,400,120\n"}});
  ASSERT_TRUE(within(20s, [&] { return drawn(browser) >= 2; })) << "typing did not redraw the preview";
  const std::size_t after = previewInk(browser);
  EXPECT_GT(after, before + 10000) << before << " then " << after;

  // An unknown command shows the engine's warning beside the picture.
  browser.call("Input.insertText", {{"text", "FROBNICATE\n"}});
  EXPECT_TRUE(within(20s, [&] {
    const json text = browser.evaluate("document.getElementById('warnings').textContent");
    return text.is_string() && text.get<std::string>().find("FROBNICATE") != std::string::npos;
  }));
}

}  // namespace
}  // namespace orvante::serve::testing
