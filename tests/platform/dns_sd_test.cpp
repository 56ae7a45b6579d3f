// A network printer announced by DNS-SD, found by orvante::discover and
// `orvante scan`, and printed to by the address found. Real Avahi daemons
// on private buses, one in a network namespace of the test's own (with the
// virtual printer) and one beside the test, joined by a veth pair: Avahi
// ignores the loopback interface. Needs root, for the namespace.

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include <orvante/printer.hpp>

#include "bluez_rig.hpp"
#include "printer_process.hpp"
#include "runtime/discovery.hpp"
#include "tool_run.hpp"

using namespace orvante;
using namespace orvante::testing;
using namespace std::chrono_literals;

namespace {

int shell(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str());
}

// A command run through the shell in a process group of its own, ended
// with the test.
class Background {
 public:
  explicit Background(const std::string& command) {
    pid_ = ::fork();
    if (pid_ == 0) {
      ::setpgid(0, 0);
      ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  ~Background() {
    ::kill(-pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }

 private:
  pid_t pid_ = -1;
};

// Two hosts joined by a veth pair: a namespace with an Avahi daemon and the
// virtual printer, and this side with an Avahi daemon of its own.
class TwoHosts {
 public:
  TwoHosts() {
    const std::string id = std::to_string(::getpid() % 100000);
    namespace_ = "orvante-" + id;
    there_ = "ova" + id;
    here_ = "ovb" + id;
    const std::string net = "10.213." + std::to_string(::getpid() % 250) + ".";
    printerAddress_ = net + "1";
    if (::geteuid() != 0 || shell("ip netns add " + namespace_) != 0) return;
    made_ = shell("ip link add " + there_ + " type veth peer name " + here_) == 0 &&
            shell("ip link set " + there_ + " netns " + namespace_) == 0 &&
            shell(inside("ip addr add " + net + "1/24 dev " + there_)) == 0 &&
            shell(inside("ip link set " + there_ + " up multicast on")) == 0 &&
            shell(inside("ip link set lo up")) == 0 &&
            shell("ip addr add " + net + "2/24 dev " + here_) == 0 &&
            shell("ip link set " + here_ + " up multicast on") == 0;
  }
  ~TwoHosts() {
    shell("ip link del " + here_);
    shell("ip netns del " + namespace_);
  }

  bool made() const { return made_; }
  const std::string& printerAddress() const { return printerAddress_; }
  std::string inside(const std::string& command) const {
    return "ip netns exec " + namespace_ + " " + command;
  }
  const std::string& thereInterface() const { return there_; }
  const std::string& hereInterface() const { return here_; }

 private:
  std::string namespace_, there_, here_, printerAddress_;
  bool made_ = false;
};

// An Avahi daemon on a bus, on one interface only, with its run folder of
// its own (the daemons would otherwise share one pid file).
std::string avahiDaemon(const std::string& bus, const std::string& interface,
                        const std::string& folder) {
  const std::string config = folder + "/avahi-" + interface + ".conf";
  std::ofstream(config) << "[server]\nuse-ipv4=yes\nuse-ipv6=no\nallow-interfaces=" << interface
                        << "\nenable-dbus=yes\n[wide-area]\nenable-wide-area=no\n"
                           "[publish]\npublish-hinfo=no\npublish-workstation=no\n";
  return "unshare -m sh -c 'mkdir -p /run/avahi-daemon && mount -t tmpfs none /run/avahi-daemon "
         "&& DBUS_SYSTEM_BUS_ADDRESS=" +
         bus + " exec avahi-daemon --no-drop-root --no-chroot --no-rlimits -f " + config + "'";
}

}  // namespace

TEST(DnsSd, ANetworkPrinterIsFoundByItsAnnouncementAndPrintedToByItsAddress) {
  TwoHosts hosts;
  if (!hosts.made()) GTEST_SKIP() << "needs root and network namespaces";
  PrivateBus there, here;
  char folder[] = "/tmp/orvante-dnssd-XXXXXX";
  ASSERT_TRUE(::mkdtemp(folder));
  const std::string log = std::string(" >>") + folder + "/log 2>&1";
  Background printer(hosts.inside(std::string(VPRINTER_EXECUTABLE) + " --listen " +
                                  hosts.printerAddress() + ":9100 --name 'OV-203 SHOP' --out " +
                                  folder + "/labels") +
                     log);
  Background thereAvahi(hosts.inside(avahiDaemon(there.address(), hosts.thereInterface(), folder)) +
                        log);
  Background hereAvahi(avahiDaemon(here.address(), hosts.hereInterface(), folder) + log);
  // Announced once the daemon over there is up to take it.
  Background announce("until DBUS_SYSTEM_BUS_ADDRESS=" + there.address() +
                      " avahi-publish -s 'Shop printer' _pdl-datastream._tcp 9100; do sleep 0.2; "
                      "done" +
                      log);

  const std::string address = "tcp://" + hosts.printerAddress() + ":9100";
  SystemBusAt system(here.address());
  Platform none;
  none.ble = std::make_shared<platform::bluez::BluezCentralFactory>();
  none.accessories = std::make_shared<platform::bluez::SerialAccessories>();
  bool found = false;
  std::string seen;  // what the last attempt found, or why it found nothing
  // The daemons take a moment to start, to probe their names and to hear
  // the announcement.
  const auto until = std::chrono::steady_clock::now() + 20s;
  while (!found && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(200ms);
    seen.clear();
    std::vector<std::string> notes;
    for (const auto& printer : runtime::discover(none, 1500ms, &notes)) {
      seen += printer.address + " " + printer.name + "\n";
      found = found || (printer.address == address && printer.name == "Shop printer");
    }
    if (!notes.empty()) seen = notes.back();
  }
  ASSERT_TRUE(found) << "no " << address << " in\n" << seen;

  const ToolRun scan =
      runTool("scan --seconds 2", "DBUS_SYSTEM_BUS_ADDRESS='" + here.address() + "'");
  EXPECT_NE(scan.out.find(address + " Shop printer\n"), std::string::npos) << scan.out << scan.err;
  EXPECT_EQ(Printer::open(address).name(), "OV-203 SHOP");
#ifdef PRINTER_APP_EXECUTABLE
  // The printer application offers it among its devices, as a socket.
  const std::string devices = [&] {
    const std::string out = std::string(folder) + "/devices";
    shell("DBUS_SYSTEM_BUS_ADDRESS='" + here.address() + "' HOME=" + folder + " " +
          PRINTER_APP_EXECUTABLE + " devices > " + out + " 2>&1; echo exit=$? >> " + out);
    return readFile(out);
  }();
  EXPECT_NE(devices.find("socket://" + hosts.printerAddress() + ":9100"), std::string::npos)
      << devices;
#endif
  shell(std::string("rm -rf ") + folder);
}
