#pragma once
// A stream pair over a BLE label printer's serial service: the output
// stream's bytes go to the write characteristic in acknowledged writes of
// the link's largest size, one at a time, and the receive characteristic's
// notifications are the input stream's bytes.

#include <memory>
#include <string>

#include <orvante/platform/ble.hpp>
#include <orvante/platform/stream.hpp>

namespace orvante::transport {

// A pair to the peripheral whose address (its identifier, for BlueZ) is
// `address`, compared without regard to case. Opening either stream makes a
// central of the radio, scans until that peripheral is heard, connects,
// finds the serial service and turns its notifications on; the streams are
// open once the printer can be written, in the error state with the reason
// when a step fails, the link drops or a write is refused. The scan goes on
// until the streams are closed: the caller sets the time limit.
StreamPair makeBleStreams(std::shared_ptr<ble::CentralFactory> radio, std::string address);

// The same over the system's BLE radio (BlueZ on the system bus).
StreamPair makeBleStreams(std::string address);

}  // namespace orvante::transport
