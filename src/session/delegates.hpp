#pragma once
// The objects the session registers as delegate of its streams, its BLE
// central and its peripheral: each forwards to the session's method of the
// same name. Each callback also moves the link signal on, before and after
// the session has handled it, so a caller's wait sees both the event and
// what the handler made of it.

#include <orvante/session.hpp>

#include "../transport/link_signal.hpp"

class SessionDelegates final : public orvante::StreamDelegate,
                               public orvante::ble::CentralDelegate,
                               public orvante::ble::PeripheralDelegate {
 public:
  explicit SessionDelegates(ORVANTESDK& session) : session_(session) {}

  orvante::transport::LinkSignal& signal() { return signal_; }

  void stream(orvante::Stream* stream, std::uint64_t eventCode) override {
    Announce announce(signal_);
    session_.stream(stream, eventCode);
  }
  void centralManagerDidUpdateState(orvante::ble::Central& central) override {
    Announce announce(signal_);
    session_.centralManagerDidUpdateState(central);
  }
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                      const orvante::ble::AdvertisementData& advertisementData,
                      std::int64_t RSSI) override {
    Announce announce(signal_);
    session_.centralManager(central, peripheral, advertisementData, RSSI);
  }
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral) override {
    Announce announce(signal_);
    session_.centralManager(central, peripheral);
  }
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                      const orvante::ble::Error* error) override {
    Announce announce(signal_);
    session_.centralManager(central, peripheral, error);
  }
  void peripheral(const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                  const orvante::ble::Error* error) override {
    Announce announce(signal_);
    session_.peripheral(peripheral, error);
  }
  void peripheral(const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                  const std::shared_ptr<orvante::ble::Service>& service,
                  const orvante::ble::Error* error) override {
    Announce announce(signal_);
    session_.peripheral(peripheral, service, error);
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
      const std::shared_ptr<orvante::ble::Characteristic>& characteristic,
      const orvante::ble::Error* error) override {
    Announce announce(signal_);
    session_.peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, error);
  }
  void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
      const std::shared_ptr<orvante::ble::Characteristic>& characteristic,
      const orvante::ble::Error* error) override {
    Announce announce(signal_);
    session_.peripheralDidWriteValueForCharacteristic(peripheral, characteristic, error);
  }

 private:
  struct Announce {
    explicit Announce(orvante::transport::LinkSignal& signal) : signal(signal) { signal.notify(); }
    ~Announce() { signal.notify(); }
    orvante::transport::LinkSignal& signal;
  };

  ORVANTESDK& session_;
  orvante::transport::LinkSignal signal_;
};
