#pragma once
// orvante serve started in this process on a free loopback port, and
// what its tests read back: JSON, PNG pictures and their ink.

#include <gtest/gtest.h>
#include <httplib.h>

#include <chrono>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include <orvante/image.hpp>

#include "serve/service.hpp"

namespace orvante::serve::testing {

using nlohmann::json;

inline ServiceOptions loopbackOptions() {
  ServiceOptions options;
  options.port = 0;
  // A printer that is away is tried again soon, so tests see it back.
  options.delivery = {std::chrono::seconds(2), std::chrono::seconds(5), std::chrono::milliseconds(20),
                      std::chrono::milliseconds(100), std::chrono::milliseconds::zero()};
  return options;
}

class RunningService {
 public:
  explicit RunningService(ServiceOptions options = loopbackOptions())
      : service_(std::make_unique<Service>(std::move(options))) {
    service_->start();
  }
  int port() const { return service_->port(); }
  std::string base() const { return "http://127.0.0.1:" + std::to_string(port()); }
  httplib::Client client() const {
    httplib::Client client("127.0.0.1", port());
    client.set_read_timeout(std::chrono::seconds(20));
    return client;
  }
  // The service stops and lets its workers go.
  void stop() { service_.reset(); }

 private:
  std::unique_ptr<Service> service_;
};

// A decoded picture: dark pixels are ink.
struct Picture {
  Image image;
  int width() const { return image.pixelWidth(); }
  int height() const { return image.pixelHeight(); }
  bool dark(int x, int y) const {
    const auto* pixel = &image.rgba()[(static_cast<std::size_t>(y) * width() + x) * 4];
    return pixel[3] > 128 && pixel[0] < 128;
  }
  std::size_t inkIn(int x0, int y0, int x1, int y1) const {
    std::size_t ink = 0;
    for (int y = std::max(0, y0); y < std::min(y1, height()); ++y)
      for (int x = std::max(0, x0); x < std::min(x1, width()); ++x) ink += dark(x, y);
    return ink;
  }
  std::size_t ink() const { return inkIn(0, 0, width(), height()); }
};

inline Picture pictureOf(const std::string& png) { return {Image::fromData(viewOf(png))}; }

// Polls until the condition holds or the time passes.
inline bool within(std::chrono::milliseconds limit, const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

inline std::string errorOf(const httplib::Result& result) {
  if (!result) return "no answer";
  EXPECT_EQ(result->get_header_value("Content-Type"), "application/json");
  const auto body = json::parse(result->body, nullptr, false);
  return body.is_object() ? body.value("error", "") : "";
}

}  // namespace orvante::serve::testing
