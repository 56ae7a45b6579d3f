#pragma once
// ORVANTESDK: the printer session. One object per printer connection; every
// public operation runs and blocks on the caller's thread. It sends every
// argument as it stands, quotes and line ends included: text from users goes
// through orvante::Label (<orvante/label.hpp>), which prints it as given or
// refuses it.

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <orvante/bytes.hpp>
#include <orvante/export.hpp>
#include <orvante/image.hpp>
#include <orvante/pdf.hpp>
#include <orvante/platform/platform.hpp>
#include <orvante/session_fields.hpp>
#include <orvante/value.hpp>

ORVANTE_API_BEGIN

class ORVANTESDK;
struct SessionOps;

// The session hears its streams and its BLE central through private
// adapters that call the plain methods below, so no callback ever
// dispatches virtually on a session that is still being built or already
// being destroyed.
class ORVANTESDK : protected ORVANTESDKFields {
 public:
  // init: creates the BLE central on "myCentralQueue", then blocks 1.0 s.
  ORVANTESDK();
  // The same over other platform services (tests, tools).
  explicit ORVANTESDK(orvante::Platform platform);
  // dealloc: closeport, then every stream and callback is detached.
  virtual ~ORVANTESDK();
  ORVANTESDK(const ORVANTESDK&) = delete;
  ORVANTESDK& operator=(const ORVANTESDK&) = delete;

  // --- Session object and connection state ---------------------------------
  std::int32_t stream_status();
  void _checkIfConnecting();
  void about();
  void timeout(const orvante::Value& sender);
  void thread_operation(orvante::ByteView data);

  // Properties accessory, session and CM.
  std::shared_ptr<orvante::Accessory> accessory() const;
  std::shared_ptr<orvante::AccessorySession> session() const;
  std::shared_ptr<orvante::ble::Central> CM() const;
  void setAccessory(std::shared_ptr<orvante::Accessory> accessory);
  void setSession(std::shared_ptr<orvante::AccessorySession> session);
  void setCM(std::shared_ptr<orvante::ble::Central> central);

  // --- Output path and reply reading --------------------------------------
  void _printWithStream(const std::shared_ptr<orvante::OutputStream>& stream,
                        orvante::ByteView message);
  void ethernet_writeStream(orvante::ByteView data);
  std::int64_t mfi_writeStream(orvante::ByteView data);
  std::int32_t MFI_OutStream(orvante::ByteView data);
  // The reply reader: the bytes read until 0.4 s pass with none waiting, in
  // reads of at most 512 bytes; empty without a TCP or accessory link. (The
  // published field of the same name, the socket read handle, is
  // ORVANTESDKFields::readStream.)
  orvante::Bytes readStream();
  // stream:handleEvent:
  void stream(orvante::Stream* stream, std::uint64_t eventCode);

  // --- TCP port ------------------------------------------------------------
  std::int64_t openport_ethernet(const std::string& host, std::int32_t port);
  std::int64_t openport_ethernet_delay(const std::string& host, std::int32_t port, double delay);
  std::int64_t openport(const std::string& host);
  void openport_thread(const std::string& host);
  std::int64_t closeport();
  std::int64_t closeport(double delay);
  std::int64_t closeport_withtime(double delay);

  // --- Label layout and print ----------------------------------------------
  std::int64_t setup(const orvante::Value& width, const orvante::Value& height,
                     const orvante::Value& speed, const orvante::Value& density,
                     const orvante::Value& sensor, const orvante::Value& vertical,
                     const orvante::Value& offset);
  std::int64_t setupForWidth(const orvante::Value& width, const orvante::Value& height,
                             const orvante::Value& speed, const orvante::Value& density,
                             const orvante::Value& sensor, const orvante::Value& vertical,
                             const orvante::Value& offset, double delay);
  std::int64_t clearbuffer();
  std::int64_t clearBuffer(double delay);
  std::int64_t barcode(const orvante::Value& x, const orvante::Value& y,
                       const orvante::Value& barcodeType, const orvante::Value& height,
                       const orvante::Value& readable, const orvante::Value& rotation,
                       const orvante::Value& narrow, const orvante::Value& wide,
                       const orvante::Value& code);
  std::int64_t barcodeFromX(const orvante::Value& x, const orvante::Value& y,
                            const orvante::Value& barcodeType, const orvante::Value& height,
                            const orvante::Value& readable, const orvante::Value& rotation,
                            const orvante::Value& narrow, const orvante::Value& wide,
                            const orvante::Value& code, double delay);
  std::int64_t printerfont(const orvante::Value& x, const orvante::Value& y,
                           const orvante::Value& fontName, const orvante::Value& rotation,
                           const orvante::Value& magnificationRateX,
                           const orvante::Value& magnificationRateY, const orvante::Value& content);
  std::int64_t printerfontFromX(const orvante::Value& x, const orvante::Value& y,
                                const orvante::Value& fontName, const orvante::Value& rotation,
                                const orvante::Value& magnificationRateX,
                                const orvante::Value& magnificationRateY,
                                const orvante::Value& content, double delay);
  std::int64_t printerfont_GB2321(const orvante::Value& x, const orvante::Value& y,
                                  const orvante::Value& fontName, const orvante::Value& rotation,
                                  const orvante::Value& magnificationRateX,
                                  const orvante::Value& magnificationRateY,
                                  const orvante::Value& content);
  std::int64_t printerfont_GB2321(const orvante::Value& x, const orvante::Value& y,
                                  const orvante::Value& fontName, const orvante::Value& rotation,
                                  const orvante::Value& magnificationRateX,
                                  const orvante::Value& magnificationRateY,
                                  const orvante::Value& content, double delay);
  std::int64_t printerfont_BIG5(const orvante::Value& x, const orvante::Value& y,
                                const orvante::Value& fontName, const orvante::Value& rotation,
                                const orvante::Value& magnificationRateX,
                                const orvante::Value& magnificationRateY,
                                const orvante::Value& content);
  std::int64_t printerfont_BIG5(const orvante::Value& x, const orvante::Value& y,
                                const orvante::Value& fontName, const orvante::Value& rotation,
                                const orvante::Value& magnificationRateX,
                                const orvante::Value& magnificationRateY,
                                const orvante::Value& content, double delay);
  std::int64_t printerfont_UTF8(const orvante::Value& x, const orvante::Value& y,
                                const orvante::Value& fontName, const orvante::Value& rotation,
                                const orvante::Value& magnificationRateX,
                                const orvante::Value& magnificationRateY,
                                const orvante::Value& content);
  std::int64_t printerfont_UTF8(const orvante::Value& x, const orvante::Value& y,
                                const orvante::Value& fontName, const orvante::Value& rotation,
                                const orvante::Value& magnificationRateX,
                                const orvante::Value& magnificationRateY,
                                const orvante::Value& content, double delay);
  std::int64_t printlabel(const orvante::Value& sets, const orvante::Value& copies);
  std::int64_t printLabelWithNumberOfSets(const orvante::Value& sets, const orvante::Value& copies,
                                          double delay);
  std::int64_t formfeed();
  std::int64_t formfeed(double delay);
  std::int64_t nobackfeed();
  std::int64_t nobackfeed(double delay);

  // --- Raw commands ------------------------------------------------------------
  std::int64_t sendcommand(const std::string& text);
  std::int64_t sendcommand(const std::string& text, std::uint64_t delay);
  std::int64_t sendcommand_utf8(const std::string& text);
  std::int64_t sendcommand_utf8(const std::string& text, std::uint64_t delay);
  std::int64_t sendcommand_gb2312(const std::string& text);
  std::int64_t sendcommand_gb2312(const std::string& text, std::uint64_t delay);
  std::int64_t sendcommand_big5(const std::string& text);
  std::int64_t sendcommand_big5(const std::string& text, std::uint64_t delay);
  std::int64_t sendcommandWithData(orvante::ByteView data);
  std::int64_t sendcommandWithData(orvante::ByteView data, std::uint64_t delay);

  // --- Printer queries ------------------------------------------------------
  std::optional<orvante::Bytes> printer_name();
  std::optional<orvante::Bytes> printer_codepage();
  std::optional<orvante::Bytes> printer_mileage();
  std::optional<orvante::Bytes> printer_freememory();
  std::optional<orvante::Bytes> printer_files();
  std::optional<orvante::Bytes> printerstatus();
  std::optional<orvante::Bytes> sendcommand_getstring(const std::string& text);
  std::optional<orvante::Bytes> sendcommand_getstring(const std::string& text, double delay);

  // --- Device configuration ------------------------------------------------
  std::string WiFi_Default();
  std::string WiFi_SSID(const std::string& ssid);
  std::string WiFi_WPA(const std::string& passphrase);
  std::string WiFi_WEP(std::int64_t keyIndex, const std::string& key);
  std::string WiFi_DHCP();
  std::string WiFi_Port(std::int64_t port);
  std::string WiFi_StaticIP(const std::string& address, const std::string& mask,
                            const std::string& gateway);
  // Raises std::out_of_range when the reply cannot be cut.
  std::string smartbattery_status(std::int64_t selector);
  std::int64_t rfidRead(const orvante::Value& tagType, const orvante::Value& format,
                        const orvante::Value& startBlock, const orvante::Value& readDataSize,
                        const orvante::Value& memoryBank);
  std::int64_t rfidWrite(const orvante::Value& tagType, const orvante::Value& format,
                         const orvante::Value& startBlock, const orvante::Value& readDataSize,
                         const orvante::Value& memoryBank, const orvante::Value& data);
  std::int64_t rfidDetect();
  std::optional<std::string> rfidGetReadData();

  // --- File download --------------------------------------------------------
  std::int64_t downloadpcx(const std::string& path, const std::string& name);
  std::int64_t downloadbmp(const std::string& path, const std::string& name);
  std::int64_t downloadttf(const std::string& path, const std::string& name);
  std::int64_t downloadData(orvante::ByteView data, const std::string& name);
  std::int64_t sendfile(const std::string& path, const std::string& name);

  // --- Monochrome raster ------------------------------------------------------
  orvante::Bytes fnBitsFromImage(const orvante::Image& image);
  orvante::Image CovertToBlackAndWhiteScale(const orvante::Image& image,
                                            const orvante::Value& density);
  // The empty image for a size that is not positive, not a number, or past
  // kMaxRenderedPixels / kMaxRenderedSide (see image.hpp).
  orvante::Image scaleToSize(const orvante::Image& image, orvante::Size size);
  void SendPic(const orvante::Image& image, std::int32_t x, std::int32_t y);
  void SendPic_NotPrint(const orvante::Image& image, std::int32_t x, std::int32_t y,
                        std::int32_t threshold);
  std::int64_t sendImagebyPath(const std::string& path, std::int32_t x, std::int32_t y,
                               std::int32_t width, std::int32_t height, std::int32_t threshold);
  std::int64_t sendImagebyFile(const orvante::Image& image, std::int32_t x, std::int32_t y,
                               std::int32_t width, std::int32_t height, std::int32_t threshold);

  // --- Rendered text ----------------------------------------------------------
  // Text set in an installed font at `height` points (one point is one
  // dot), turned clockwise by `rotation` degrees, sent as the compressed
  // bitmap packet after a 0.5 s pause. style: 0 regular, 1 italic, 2 bold,
  // 3 bold italic. withUnderline has no effect: no underline is ever drawn.
  // 1 when handed to a link; -1 when none is open (after the pause) or when
  // the text would need more than kMaxRenderedPixels (see image.hpp; logged
  // as "Name:" and "Reason:", without the pause).
  std::int64_t windowsfont(std::int32_t x, std::int32_t y, std::int32_t height,
                           std::int32_t rotation, std::int32_t style, std::int32_t withUnderline,
                           const std::string& fontName, const std::string& content);
  // Beware: not windowsfont plus a delay. It pauses `delay` seconds instead
  // of 0.5 and sends the raster uncompressed in the "BITMAP" command,
  // without the encoder's lock; it leaves commandbuffer, _writeData, end and
  // endCRLF holding that command's pieces.
  std::int64_t windowsfontFromX(std::int32_t x, std::int32_t y, std::int32_t height,
                                std::int32_t rotation, std::int32_t style,
                                std::int32_t withUnderline, const std::string& fontName,
                                const std::string& content, double delay);
  // The face of the family (exact, case-sensitive family name) that fits the
  // style, as a PostScript name such as "DejaVuSans-Bold". A name containing
  // "Medium" counts as bold. An unknown family comes back unchanged.
  std::string fnFindFontWithName(const std::string& name, bool bold, bool italic);
  // The content drawn as one line, black, without antialiasing, on a
  // transparent image whose sides are padded up to multiples of 8, then
  // rotated when rotation is not 0. The underline argument is ignored. A
  // face name that names no installed face or family draws in the default
  // sans-serif face. Throws orvante::Exception "ImageTooLarge" beyond
  // kMaxRenderedPixels.
  orvante::Image fnDrawString(const std::string& content, const std::string& fontName,
                              std::int32_t size, bool underline, std::int32_t rotation);
  // Turned clockwise about the centre; exactly 90 and 270 swap the sides,
  // other angles keep the size and clip the corners.
  orvante::Image fnRotateImage(const orvante::Image& image, double degree);

  // --- PDF printing -------------------------------------------------------------
  // Each page is drawn on white at printer_dpi and sent by SendPic (compressed
  // packet, then "\r\nPRINT 1\r\n"). The _Resize forms stretch each page to
  // width x height dots when both are positive and send "CLS\r\n" first.
  // page_index counts from 1; a page the document lacks is drawn as nothing:
  // an empty packet, or in the _Resize forms a white one of width x height.
  // A file that is no readable PDF has 0 pages: nothing is sent and the
  // result is 1. -1, logged as "Name:" and "Reason:", when a page would
  // need more than kMaxRenderedPixels (100 megapixels, see image.hpp); the
  // pages before it have been sent. -1 too in a build without PDF support.
  std::int64_t printPDFbyPath(const std::string& path, std::int32_t x, std::int32_t y,
                              std::int32_t printer_dpi);
  std::int64_t printPDFbyPath(const std::string& path, std::int32_t x, std::int32_t y,
                              std::int32_t printer_dpi, std::int32_t page_index);
  std::int64_t printPDFbyPath_Resize(const std::string& path, std::int32_t x, std::int32_t y,
                                     std::int32_t width, std::int32_t height,
                                     std::int32_t printer_dpi);
  std::int64_t printPDFbyPath_Resize(const std::string& path, std::int32_t x, std::int32_t y,
                                     std::int32_t width, std::int32_t height,
                                     std::int32_t printer_dpi, std::int32_t page_index);
  std::int64_t printPDFbyFile(const orvante::PdfDocument& document, std::int32_t x, std::int32_t y,
                              std::int32_t printer_dpi);
  std::int64_t printPDFbyFile(const orvante::PdfDocument& document, std::int32_t x, std::int32_t y,
                              std::int32_t printer_dpi, std::int32_t page_index);
  std::int64_t printPDFbyFile_Resize(const orvante::PdfDocument& document, std::int32_t x,
                                     std::int32_t y, std::int32_t width, std::int32_t height,
                                     std::int32_t printer_dpi);
  std::int64_t printPDFbyFile_Resize(const orvante::PdfDocument& document, std::int32_t x,
                                     std::int32_t y, std::int32_t width, std::int32_t height,
                                     std::int32_t printer_dpi, std::int32_t page_index);
  // The number of pages: 0 for a file that is no readable PDF.
  std::int64_t getPDFPageCountbyPath(const std::string& path);
  std::int64_t getPDFPageCountbyFile(const orvante::PdfDocument& document);

  // --- Accessory port ---------------------------------------------------------
  std::int64_t openportMFI();
  std::int64_t openportMFI_delay(double delay);
  std::int64_t openportMFI(const std::string& protocol);
  std::int64_t openportMFI_delay(const std::string& protocol, double delay);
  std::int64_t openportMFI_withname(const std::string& name);
  std::int64_t openportMFI_withname(const std::string& name, double delay);
  void openportMFI_thread();
  void searchMFI();
  std::optional<std::string> BTMAC();

  // --- BLE port --------------------------------------------------------------
  std::vector<std::shared_ptr<orvante::ble::Peripheral>> searchBLEDevice(std::int64_t seconds);
  std::int64_t openport_ble(const std::shared_ptr<orvante::ble::Peripheral>& peripheral);
  std::int64_t openport_ble(const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                            double delay);
  void BLE_StartScan();
  void BLE_StopScan();
  void BLE_Connect(const std::shared_ptr<orvante::ble::Peripheral>& peripheral);
  void BLE_Disconnect();
  void BLE_WriteData(orvante::ByteView data);
  std::int32_t BLE_OutStream(orvante::ByteView data);

  void centralManagerDidUpdateState(orvante::ble::Central& central);
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                      const orvante::ble::AdvertisementData& advertisementData, std::int64_t RSSI);
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral);
  void centralManager(orvante::ble::Central& central,
                      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                      const orvante::ble::Error* error);
  void peripheral(const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                  const orvante::ble::Error* error);
  void peripheral(const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
                  const std::shared_ptr<orvante::ble::Service>& service,
                  const orvante::ble::Error* error);
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
      const std::shared_ptr<orvante::ble::Characteristic>& characteristic,
      const orvante::ble::Error* error);
  void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<orvante::ble::Peripheral>& peripheral,
      const std::shared_ptr<orvante::ble::Characteristic>& characteristic,
      const orvante::ble::Error* error);

 protected:
  // The platform services this session uses.
  const orvante::Platform& platform() const;
  void pause(double seconds);

 private:
  // The session's own state and the steps its operations share, both
  // defined inside the library.
  struct Internals;
  friend struct ::SessionOps;

  std::unique_ptr<Internals> internals_;
};

ORVANTE_API_END
