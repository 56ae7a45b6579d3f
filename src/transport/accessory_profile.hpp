#pragma once
// How a printer on the Bluetooth serial profile presents itself as an
// accessory: the protocol it speaks and the key of its device address.

namespace orvante::transport::accessory_profile {

inline constexpr const char* kDataPathProtocol = "com.issc.datapath";
inline constexpr const char* kMacAddressKey = "macAddress";

}  // namespace orvante::transport::accessory_profile
