#pragma once
// Globals the BLE link exports.

#include <cstdint>

#include <orvante/export.hpp>

ORVANTE_API_BEGIN

extern "C" {
// Length of the most recent notification's value on the receive
// characteristic; written on the BLE callback thread.
extern std::int32_t BleReceivedLen;
// Exported and never used by the library.
extern std::int32_t countPacket;
}

ORVANTE_API_END
