#include "session_ops.hpp"

Link SessionOps::currentLink(const ORVANTESDK& s) {
  if (s.EthernetPortEnable == 1) return Link::Tcp;
  if (s.MFI_port == 1) return Link::Accessory;
  if (s.BLEPortEnable == 1) return Link::Ble;
  return Link::None;
}

bool SessionOps::readsStreams(const ORVANTESDK& s) {
  const auto link = SessionOps::currentLink(s);
  return link == Link::Tcp || link == Link::Accessory;
}
