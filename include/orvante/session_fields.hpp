#pragma once
// The published fields of the printer session, in their published order,
// as a protected base of ORVANTESDK: a subclass (a test, an application's
// own session type) reaches them as instance variables are reached on the
// original platform. Integer flags are atomics and object fields are
// guarded, since the event threads and the BLE queue share them with the
// caller's thread.
//
// Four names are also public operations of ORVANTESDK: readStream (the
// reply reader) and the properties session, accessory and CM. Inside a
// subclass those names are the operations; the fields are reached as
// ORVANTESDKFields::readStream and so on.

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>
#include <orvante/field.hpp>
#include <orvante/platform/platform.hpp>

ORVANTE_API_BEGIN

class ORVANTESDKFields {
 protected:
  ORVANTESDKFields() = default;
  ~ORVANTESDKFields() = default;
  ORVANTESDKFields(const ORVANTESDKFields&) = delete;
  ORVANTESDKFields& operator=(const ORVANTESDKFields&) = delete;

  orvante::Field<std::shared_ptr<orvante::InputStream>> iStream;       // 1
  orvante::Field<std::shared_ptr<orvante::OutputStream>> oStream;      // 2
  orvante::Field<std::shared_ptr<orvante::InputStream>> readStream;    // 3
  orvante::Field<std::shared_ptr<orvante::OutputStream>> writeStream;  // 4
  orvante::Field<std::optional<orvante::Bytes>> stream_buffer;         // 5
  orvante::Field<std::shared_ptr<orvante::AccessorySession>> session;  // 6
  orvante::Field<std::shared_ptr<orvante::Accessory>> accessory;       // 7
  orvante::Field<std::optional<std::string>> _protocolString;          // 8
  orvante::Field<std::optional<orvante::Bytes>> _writeData;            // 9
  orvante::Field<std::optional<orvante::Bytes>> _readData;             // 10
  orvante::Field<std::optional<orvante::Bytes>> _TestStream;           // 11
  orvante::Field<std::optional<orvante::Bytes>> end;                   // 12
  orvante::Field<std::optional<std::string>> endCRLF;                  // 13
  std::atomic<bool> isAvailable{false};                                // 14
  orvante::Field<std::optional<orvante::Bytes>> RecvBuffer;            // 15
  std::atomic<std::int64_t> error{0};                                  // 16
  std::atomic<bool> IsXpico{false};                                    // 17
  orvante::Field<std::optional<std::vector<std::shared_ptr<orvante::ble::Peripheral>>>>
      BLEDeviceList;                                                                    // 18
  orvante::Field<std::shared_ptr<orvante::ble::Service>> cbService;                     // 19
  orvante::Field<std::shared_ptr<orvante::ble::Peripheral>> connectPeripheral;          // 20
  orvante::Field<std::shared_ptr<orvante::ble::Characteristic>> cbWirteCharacteristic;  // 21
  orvante::Field<std::shared_ptr<orvante::ble::Characteristic>> cbReadCharacteristic;   // 22
  std::atomic<std::int64_t> BLEPortEnable{0};                                           // 23
  orvante::Field<std::optional<orvante::Bytes>> BLEReceivebuffer;                       // 24
  std::atomic<std::int64_t> MFI_port{0};                                                // 25
  std::atomic<std::int64_t> MFIPortEnable{0};                                           // 26
  std::atomic<std::int64_t> EthernetPortEnable{0};                                      // 27
  std::atomic<std::int64_t> receivejudge{0};                                            // 28
  std::atomic<std::int64_t> sendjudge{0};                                               // 29
  orvante::Field<std::optional<orvante::Bytes>> buffer;                                 // 30
  orvante::Field<std::optional<std::string>> commandbuffer;                             // 31
  orvante::Field<std::shared_ptr<orvante::ble::Central>> CM;                            // 32
};

ORVANTE_API_END
