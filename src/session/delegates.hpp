#pragma once
// The objects the session registers as delegate of its streams, its BLE
// central and its peripheral: each forwards to the session's method of the
// same name.

#include <orvante/session.hpp>

class SessionDelegates final : public orvante::StreamDelegate,
                               public orvante::ble::CentralDelegate,
                               public orvante::ble::PeripheralDelegate {
 public:
  explicit SessionDelegates(ORVANTESDK& session) : session_(session) {}

  void stream(orvante::Stream* stream, std::uint64_t eventCode) override {
    session_.stream(stream, eventCode);
  }
  void centralManagerDidUpdateState(orvante::ble::Central& central) override {
    session_.centralManagerDidUpdateState(central);
  }
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                      const orvante::ble::AdvertisementData& advertisementData,
                      std::int64_t RSSI) override {
    session_.centralManager(central, peripheral, advertisementData, RSSI);
  }
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral) override {
    session_.centralManager(central, peripheral);
  }
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                      const orvante::ble::Error* error) override {
    session_.centralManager(central, peripheral, error);
  }
  void peripheral(const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                  const orvante::ble::Error* error) override {
    session_.peripheral(peripheral, error);
  }
  void peripheral(const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                  const std::shared_ptr<orvante::ble::Service>& service,
                  const orvante::ble::Error* error) override {
    session_.peripheral(peripheral, service, error);
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
      const std::shared_ptr<orvante::ble::Characteristic>& characteristic,
      const orvante::ble::Error* error) override {
    session_.peripheralDidUpdateValueForCharacteristic(peripheral, characteristic, error);
  }
  void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
      const std::shared_ptr<orvante::ble::Characteristic>& characteristic,
      const orvante::ble::Error* error) override {
    session_.peripheralDidWriteValueForCharacteristic(peripheral, characteristic, error);
  }

 private:
  ORVANTESDK& session_;
};
