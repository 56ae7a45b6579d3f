#pragma once
// The GATT profile of a BLE label printer: the serial service whose write
// characteristic takes printer commands and whose receive characteristic
// notifies the replies, and the device information service that names the
// maker (a serial bridge is told by it).

#include <orvante/platform/ble.hpp>

namespace orvante::transport::printer_profile {

inline const char* const kDeviceInformation = "180A";
inline const ble::Uuid kManufacturerName("00002A29-0000-1000-8000-00805F9B34FB");
inline const ble::Uuid kSerialService("49535343-FE7D-4AE5-8FA9-9FAFD205E455");
inline const ble::Uuid kReceive("49535343-1E4D-4BD9-BA61-23C647249616");
inline const ble::Uuid kWrite("49535343-8841-43F4-A8d4-ECBE34729BB3");

}  // namespace orvante::transport::printer_profile
