#include "link.hpp"

ORVANTESDK::Link ORVANTESDK::currentLink() const {
  if (EthernetPortEnable == 1) return Link::Tcp;
  if (MFI_port == 1) return Link::Accessory;
  if (BLEPortEnable == 1) return Link::Ble;
  return Link::None;
}

bool ORVANTESDK::readsStreams() const {
  const auto link = currentLink();
  return link == Link::Tcp || link == Link::Accessory;
}
