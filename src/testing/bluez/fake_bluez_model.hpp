#pragma once
// What the parts of the stand-in BlueZ share: the names of BlueZ's D-Bus
// interfaces and of the printer's services, the per-device record of what
// clients did, and the timer that answers acknowledged writes late.

#include <algorithm>
#include <condition_variable>
#include <thread>

#include "fake_bluez.hpp"

namespace orvante::testing {
namespace fake_bluez {

inline const char* const kAdapter = "org.bluez.Adapter1";
inline const char* const kDevice = "org.bluez.Device1";
inline const char* const kGattService = "org.bluez.GattService1";
inline const char* const kGattCharacteristic = "org.bluez.GattCharacteristic1";
inline const char* const kProfileManager = "org.bluez.ProfileManager1";
inline const char* const kAdapterPath = "/org/bluez/hci0";

inline const char* const kSerialPort = "00001101-0000-1000-8000-00805f9b34fb";
inline const char* const kDeviceInformation = "0000180a-0000-1000-8000-00805f9b34fb";
inline const char* const kManufacturerName = "00002a29-0000-1000-8000-00805f9b34fb";
inline const char* const kSerialService = "49535343-fe7d-4ae5-8fa9-9fafd205e455";
inline const char* const kReceive = "49535343-1e4d-4bd9-ba61-23c647249616";
inline const char* const kWrite = "49535343-8841-43f4-a8d4-ecbe34729bb3";

inline std::string devicePath(std::string address) {
  std::replace(address.begin(), address.end(), ':', '_');
  return std::string(kAdapterPath) + "/dev_" + address;
}

inline sdbus::Variant text(const std::string& value) { return sdbus::Variant(value); }

}  // namespace fake_bluez

class FakeBluez::Timer {
 public:
  explicit Timer(testing::bluez::BusLoop& loop) : loop_(loop), thread_([this] { run(); }) {}
  ~Timer() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  void at(std::chrono::steady_clock::time_point when, std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      tasks_.emplace(when, std::move(task));
    }
    changed_.notify_all();
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
      if (tasks_.empty()) {
        changed_.wait(lock);
        continue;
      }
      const auto first = tasks_.begin();
      if (changed_.wait_until(lock, first->first) == std::cv_status::no_timeout) continue;
      if (std::chrono::steady_clock::now() < first->first) continue;
      auto task = std::move(first->second);
      tasks_.erase(first);
      loop_.post(std::move(task));
    }
  }

  testing::bluez::BusLoop& loop_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> tasks_;
  bool stopping_ = false;
  std::thread thread_;
};

struct FakeBluez::Device {
  std::vector<Write> writes;
  bool notifying = false;
  int connects = 0;
  int reads = 0;
  std::map<std::string, std::string> failing;
};

}  // namespace orvante::testing
