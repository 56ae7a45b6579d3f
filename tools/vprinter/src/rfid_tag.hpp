#pragma once
// A simulated RFID tag in front of the printer's encoder: four memory
// banks (0 reserved, 1 EPC, 2 TID, 3 user) that RFID READ reads and RFID
// WRITE writes. Reads give upper-case hex, or ASCII in format 1.

#include <array>
#include <string>

#include <orvante/bytes.hpp>

namespace orvante::vprinter {

class RfidTag {
 public:
  RfidTag();
  // The tag's EPC, as RFIDDETECT reports it.
  std::string detect() const;
  // Throws CommandWarning for a bank or range the tag does not have.
  std::string read(int bank, int start, int size, int format) const;
  void write(int bank, int start, const std::string& data, int format);

 private:
  Bytes& bankBytes(int bank);
  std::array<Bytes, 4> banks_;
};

}  // namespace orvante::vprinter
