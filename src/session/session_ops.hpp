#pragma once
// Internal: the steps the published operations share. They live here, not in
// the public header, as static functions of a friend of the session.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <orvante/session.hpp>

namespace orvante {
struct LayoutRule;
}  // namespace orvante

// The link that output takes.
enum class Link : int { None, Tcp, Accessory, Ble };

struct SessionOps {
  // The link rule: output goes to the first link whose flag is exactly 1, in the order TCP,
  // accessory, BLE.
  static Link currentLink(const ORVANTESDK& s);
  // Whether the current link replies through streams (TCP or accessory).
  static bool readsStreams(const ORVANTESDK& s);

  // The session object: streams replaced without a close, the accessory output, detaching at the
  // end.
  static void detachEverything(ORVANTESDK& s);
  static void keepAbandoned(ORVANTESDK& s, orvante::StreamPair streams);
  static std::shared_ptr<orvante::OutputStream> accessoryOutput(ORVANTESDK& s);

  // The TCP link: starting its streams, raising its flag, closing the links.
  static void startTcpStreams(ORVANTESDK& s, const orvante::StreamPair& pair);
  static void raiseTcpFlag(ORVANTESDK& s);
  static void releaseFailedTcpStreams(ORVANTESDK& s);
  static std::int64_t closeLink(ORVANTESDK& s, std::optional<double> delayBefore,
                                bool disconnectBle);

  // The accessory link.
  static std::int64_t openAccessory(ORVANTESDK& s, const std::string& protocol,
                                    const std::optional<std::string>& name, bool flagFirst,
                                    double settle);

  // Replies: where they come from, the drain of unasked bytes, the stream-error action.
  static std::shared_ptr<orvante::InputStream> replySource(ORVANTESDK& s);
  static void drainUnclaimedReply(ORVANTESDK& s);
  static void failTcpLink(ORVANTESDK& s);

  // Text sent as it stands.
  static std::int64_t sendRawText(ORVANTESDK& s, orvante::ByteView bytes);

  // Command lines sent by the builders' rule.
  // Sends by the builders' rule; returns the link the bytes went to.
  static Link sendBuilderBytes(ORVANTESDK& s, orvante::ByteView bytes);
  static std::int64_t sendLayout(ORVANTESDK& s, const std::string& text,
                                 const orvante::LayoutRule& rule, std::optional<double> delay);

  // Pictures: the encoder under the session's lock, the bitmap packet.
  static orvante::Bytes compressRaster(ORVANTESDK& s, orvante::ByteView raster);
  static void sendPicture(ORVANTESDK& s, const orvante::Image& image, std::int32_t x,
                          std::int32_t y, bool whiteFill, double threshold);

  // Queries and their replies on each link.
  static std::optional<orvante::Bytes> awaitReply(ORVANTESDK& s, bool watchOutputStatus);
  static orvante::Bytes settleBleReply(ORVANTESDK& s);
  static std::optional<orvante::Bytes> query(ORVANTESDK& s, orvante::ByteView command,
                                             double tcpPause);

  // Downloads.
  static void sendInChunks(ORVANTESDK& s, orvante::ByteView file);
};
