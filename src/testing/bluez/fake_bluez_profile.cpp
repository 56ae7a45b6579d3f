// org.bluez.ProfileManager1 and the serial port profile of the stand-in:
// paired printers, and the socket handed to the registered profile on
// ConnectProfile.

#include "fake_bluez.hpp"
#include "fake_bluez_model.hpp"

#include <sys/socket.h>

namespace orvante::testing {

using namespace fake_bluez;

void FakeBluez::registerProfileManager() {
  manager_ = sdbus::createObject(loop_->bus(), "/org/bluez");
  manager_->registerMethod("RegisterProfile")
      .onInterface(kProfileManager)
      .implementedAs([this](const sdbus::ObjectPath& path, const std::string&, const Properties&) {
        if (!profileOwner_.empty()) {
          throw sdbus::Error("org.bluez.Error.AlreadyExists", "Already Exists");
        }
        profileOwner_ = manager_->getCurrentlyProcessedMessage()->getSender();
        profilePath_ = path;
      });
  manager_->registerMethod("UnregisterProfile")
      .onInterface(kProfileManager)
      .implementedAs([this](const sdbus::ObjectPath&) {
        profileOwner_.clear();
      });
  manager_->finishRegistration();
}

std::string FakeBluez::addSerialPrinter(const std::string& address, const std::string& alias,
                                        bool paired) {
  if (!loop_->isCurrent()) {
    std::string made;
    onLoop([&] { made = addSerialPrinter(address, alias, paired); });
    return made;
  }
  const auto path = devicePath(address);
  exportObject(path,
               {{kDevice,
                 {{"Address", text(address)},
                  {"Adapter", sdbus::Variant(sdbus::ObjectPath(kAdapterPath))},
                  {"Name", text(alias)},
                  {"Alias", text(alias)},
                  {"Paired", sdbus::Variant(paired)},
                  {"Connected", sdbus::Variant(false)},
                  {"UUIDs", sdbus::Variant(std::vector<std::string>{
                                "00001200-0000-1000-8000-00805f9b34fb", kSerialPort})}}}},
               true);
  return path;
}

void FakeBluez::connectProfile(const std::string& path) {
  std::string owner, profile;
  orvante::testing::PrinterPeer::Responder responder;
  {
    owner = profileOwner_;
    profile = profilePath_;
    responder = serialResponder_;
  }
  if (owner.empty()) throw sdbus::Error("org.bluez.Error.NotAvailable", "No profile registered");
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    throw sdbus::Error("org.bluez.Error.Failed", "No socket");
  }
  auto peer = std::make_shared<orvante::testing::PrinterPeer>(ends[1], std::move(responder));
  {
    serialPeer_ = peer;
  }
  // BlueZ hands the socket over before ConnectProfile returns; here it
  // follows the reply at once, which a client must take as well.
  sdbus::UnixFd handed(ends[0], sdbus::adopt_fd);
  profileClient_ = sdbus::createProxy(loop_->bus(), owner, profile);
  profileClient_->callMethodAsync("NewConnection")
      .onInterface("org.bluez.Profile1")
      .withTimeout(std::chrono::seconds(10))
      .withArguments(sdbus::ObjectPath(path), handed, Properties{})
      .uponReplyInvoke([](const sdbus::Error*) {});
}

}  // namespace orvante::testing
