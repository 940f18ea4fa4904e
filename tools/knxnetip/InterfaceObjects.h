// The device's interface objects as a KNX commissioning tool sees them: the
// device object (type 0) and the KNXnet/IP parameter object (type 11). The
// parameter object's IP settings are the IP configuration manager's; the KNX
// identity and the KNXnet/IP values around it are held here. Property writes
// only store; a reset commits the stored IP settings to the manager.
//
// Properties beyond the standard ones, on object 11:
//   201  first DNS server  (u32, read-write, GetDNSAddress(1) / SetDNSAddress(1, ...))
//   202  second DNS server (u32, read-write, GetDNSAddress(2) / SetDNSAddress(2, ...))
#ifndef KNXNETIP_INTERFACE_OBJECTS_H
#define KNXNETIP_INTERFACE_OBJECTS_H

#include "Cemi.h"
#include "DeviceIdentity.h"
#include "Frame.h"
#include "KnxStackAddonInterface.h"

namespace KnxNetIp {

enum ObjectType : std::uint16_t { kDeviceObject = 0, kIpParameterObject = 11 };
constexpr std::uint8_t kPidFirstDns = 201;
constexpr std::uint8_t kPidSecondDns = 202;

// The values of the parameter object that the manager does not hold.
struct HostValues {
    std::uint16_t projectInstallationId = 0;
    std::uint16_t individualAddress = 0;
    std::uint8_t currentAssignmentMethod = 0;
    std::uint32_t dhcpServer = 0;
    std::uint32_t routingMulticast = kSystemSetupMulticast;
    std::uint8_t ttl = 16;
    std::array<std::uint8_t, kFriendlyNameSize> friendlyName{};
};

class InterfaceObjects {
public:
    InterfaceObjects(KnxStack::IIpConfigurationManager& manager, const DeviceIdentity& identity);

    // Answers one local device management request: a property service with its
    // confirmation (an error confirmation when it cannot be done), a reset with
    // the reset indication. Nothing for frames that are not requests.
    std::optional<Cemi::Message> Serve(const Cemi::Message& request);

    // Every DIB this device has, from the same values as the properties.
    Description Describe();

    // Called by the property table.
    KnxStack::IIpConfigurationManager& manager() { return m_manager; }
    HostValues& host() { return m_host; }
    const DeviceIdentity& identity() const { return m_identity; }

private:
    Cemi::Message Read(const Cemi::Message& request);
    Cemi::Message Write(const Cemi::Message& request);
    void NoteAssignmentMethodInEffect();

    KnxStack::IIpConfigurationManager& m_manager;
    DeviceIdentity m_identity;
    HostValues m_host;
};

} // namespace KnxNetIp

#endif
