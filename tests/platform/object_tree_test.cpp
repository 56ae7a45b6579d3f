// BlueZ's objects merged as the central keeps them, without a bus: the
// radio's state, the devices, their services and the link's MTU.

#include <gtest/gtest.h>

#include "platform/bluez/object_tree.hpp"

using namespace orvante;
using namespace orvante::platform::bluez;

namespace {

sdbus::Variant variant(auto value) {
  return sdbus::Variant(value);
}

ManagedObjects listing() {
  const std::string device = "/org/bluez/hci0/dev_00_11_62_AA_BB_01";
  return {
      {sdbus::ObjectPath("/org/bluez/hci0"), {{kAdapter, {{"Powered", variant(true)}}}}},
      {sdbus::ObjectPath(device),
       {{kDevice,
         {{"Address", variant(std::string("00:11:62:AA:BB:01"))},
          {"Name", variant(std::string("P1"))},
          {"ServicesResolved", variant(true)}}}}},
      {sdbus::ObjectPath(device + "/service0010"),
       {{kGattService,
         {{"UUID", variant(std::string("49535343-fe7d-4ae5-8fa9-9fafd205e455"))},
          {"Device", variant(sdbus::ObjectPath(device))}}}}},
      {sdbus::ObjectPath(device + "/service0010/char0011"),
       {{kGattCharacteristic,
         {{"UUID", variant(std::string("49535343-8841-43f4-a8d4-ecbe34729bb3"))},
          {"Service", variant(sdbus::ObjectPath(device + "/service0010"))},
          {"MTU", variant(std::uint16_t(185))}}}}},
      {sdbus::ObjectPath(device + "/service0010/char0013"),
       {{kGattCharacteristic,
         {{"UUID", variant(std::string("2a29"))},
          {"Service", variant(sdbus::ObjectPath(device + "/service0010"))},
          {"Value", variant(std::vector<std::uint8_t>{'O', 'V'})},
          {"MTU", variant(std::uint16_t(23))}}}}},
      // Another device's service is not this one's.
      {sdbus::ObjectPath("/org/bluez/hci0/dev_00_11_62_AA_BB_02/service0001"),
       {{kGattService,
         {{"UUID", variant(std::string("180a"))},
          {"Device", variant(sdbus::ObjectPath("/org/bluez/hci0/dev_00_11_62_AA_BB_02"))}}}}},
  };
}

const std::string kDevicePath = "/org/bluez/hci0/dev_00_11_62_AA_BB_01";

}  // namespace

TEST(ObjectTree, TheRadioFollowsItsAdapterThroughEachSignal) {
  ObjectTree tree;
  EXPECT_EQ(tree.radioState(), ble::CentralState::Unsupported);
  tree.merge(listing());
  EXPECT_EQ(tree.radioState(), ble::CentralState::PoweredOn);
  EXPECT_EQ(tree.adapterPath(), "/org/bluez/hci0");
  EXPECT_TRUE(tree.propertiesChanged("/org/bluez/hci0", kAdapter, {{"Powered", variant(false)}}, {})
                  .adapter);
  EXPECT_EQ(tree.radioState(), ble::CentralState::PoweredOff);
  EXPECT_TRUE(tree.interfacesRemoved("/org/bluez/hci0", {kAdapter}).adapter);
  EXPECT_EQ(tree.radioState(), ble::CentralState::Unsupported);
  EXPECT_TRUE(
      tree.interfacesAdded("/org/bluez/hci1", {{kAdapter, {{"Powered", variant(true)}}}}).adapter);
  EXPECT_EQ(tree.radioState(), ble::CentralState::PoweredOn);
  tree.clear();
  EXPECT_EQ(tree.radioState(), ble::CentralState::Unsupported);
}

TEST(ObjectTree, ADevicesServicesCharacteristicsAndMtuComeFromItsOwnObjects) {
  ObjectTree tree;
  tree.merge(listing());
  EXPECT_EQ(tree.devicePaths(), std::vector<std::string>{kDevicePath});
  EXPECT_TRUE(tree.servicesResolved(kDevicePath));
  const auto services = tree.services(kDevicePath);
  ASSERT_EQ(services.size(), 1u);
  EXPECT_EQ(services[0].uuid, ble::Uuid("49535343-FE7D-4AE5-8FA9-9FAFD205E455"));
  ASSERT_EQ(services[0].characteristics.size(), 2u);
  EXPECT_FALSE(services[0].characteristics[0].value);
  EXPECT_EQ(services[0].characteristics[1].value, (Bytes{'O', 'V'}));
  EXPECT_EQ(tree.mtu(kDevicePath), 185);
  EXPECT_EQ(tree.mtu("/org/bluez/hci0/dev_00_11_62_AA_BB_02"), std::nullopt);

  // A value that changes says which characteristic; an invalidated
  // property is forgotten; a removed device says so.
  const auto valued =
      tree.propertiesChanged(kDevicePath + "/service0010/char0011", kGattCharacteristic,
                             {{"Value", variant(std::vector<std::uint8_t>{1})}}, {});
  EXPECT_EQ(valued.value, kDevicePath + "/service0010/char0011");
  EXPECT_EQ(tree.propertiesChanged(kDevicePath, kDevice, {}, {"ServicesResolved"}).device,
            kDevicePath);
  EXPECT_FALSE(tree.servicesResolved(kDevicePath));
  const auto removed = tree.interfacesRemoved(kDevicePath, {kDevice});
  EXPECT_TRUE(removed.deviceRemoved);
  EXPECT_TRUE(tree.devicePaths().empty());
}
