// org.bluez.GattCharacteristic1 of the stand-in: reads, writes answered at
// the radio's pace, and notifications.

#include "fake_bluez.hpp"
#include "fake_bluez_model.hpp"

namespace orvante::testing {

using namespace fake_bluez;

// Characteristics sit two levels below their device.
std::string FakeBluez::characteristicDevice(const std::string& path) const {
  auto service = path.substr(0, path.rfind('/'));
  return service.substr(0, service.rfind('/'));
}

void FakeBluez::registerCharacteristic(const std::string& path) {
  auto& object = *exported_[path];
  object.registerMethod("ReadValue")
      .onInterface(kGattCharacteristic)
      .implementedAs([this, path](const Properties&) {
        const auto owner = characteristicDevice(path);
        throwIfFailing(owner, "ReadValue");
        auto& properties = objects_[path][kGattCharacteristic];
        ++device(owner).reads;
        if (!properties.count("Value")) return std::vector<std::uint8_t>{};
        auto value = properties["Value"].get<std::vector<std::uint8_t>>();
        if (path == owner + "/service0010/char0011") {
          properties["Value"] = sdbus::Variant(std::vector<std::uint8_t>{});
        }
        return value;
      });
  object.registerMethod("WriteValue")
      .onInterface(kGattCharacteristic)
      .implementedAs([this, path](sdbus::Result<>&& result, const std::vector<std::uint8_t>& data,
                                  const Properties& options) {
        const auto owner = characteristicDevice(path);
        auto answer = std::make_shared<sdbus::Result<>>(std::move(result));
        std::string type;
        try {
          throwIfFailing(owner, "WriteValue");
          auto& state = objects_[owner][kDevice];
          if (!state["Connected"].get<bool>()) {
            throw sdbus::Error("org.bluez.Error.NotConnected", "Not Connected");
          }
          auto found = options.find("type");
          if (found != options.end()) type = found->second.get<std::string>();
        } catch (const sdbus::Error& error) {
          answer->returnError(error);
          return;
        }
        device(owner).writes.push_back({data, type});
        answerWrite(std::move(answer), owner, data, type == "request");
      });
  object.registerMethod("StartNotify").onInterface(kGattCharacteristic).implementedAs([this, path] {
    const auto owner = characteristicDevice(path);
    throwIfFailing(owner, "StartNotify");
    device(owner).notifying = true;
  });
  object.registerMethod("StopNotify").onInterface(kGattCharacteristic).implementedAs([this, path] {
    device(characteristicDevice(path)).notifying = false;
  });
}

// Answers the write at once, or one connection interval after the last
// acknowledged write was answered; the printer takes the bytes after that.
void FakeBluez::answerWrite(std::shared_ptr<sdbus::Result<>> result, const std::string& owner,
                            std::vector<std::uint8_t> data, bool acknowledged) {
  // The responder is looked up when it is due, so one cleared meanwhile is not called.
  auto answer = [this, result = std::move(result), owner, data = std::move(data)] {
    result->returnResults();
    loop_->post([this, owner, data] {
      auto responder = responder_;
      if (responder) responder(*this, owner, data);
    });
  };
  if (!acknowledged || connectionInterval_.count() == 0) return answer();
  const auto now = std::chrono::steady_clock::now();
  lastAnswer_ = std::max(now, lastAnswer_) + connectionInterval_;
  timer_->at(lastAnswer_, std::move(answer));
}

}  // namespace orvante::testing
