#pragma once
// Internal: the link rule. Output goes to the first link whose flag is
// exactly 1, in the order TCP, accessory, BLE.

#include <orvante/session.hpp>

enum class ORVANTESDK::Link : int { None, Tcp, Accessory, Ble };
