#include "InterfaceObjects.h"

#include <algorithm>

namespace KnxNetIp {

namespace {

using Manager = KnxStack::IIpConfigurationManager;
using Objects = InterfaceObjects;

constexpr std::uint8_t kManualMethod = 0x01;
constexpr std::uint8_t kDhcpMethod = 0x04;
constexpr unsigned kAllMethods = 0x0F;
constexpr std::uint16_t kDeviceManagementCapability = 0x0001;

Bytes U8(unsigned value) {
    return {static_cast<std::uint8_t>(value)};
}
Bytes U16(unsigned value) {
    Bytes out;
    PutU16(out, value);
    return out;
}
Bytes U32(unsigned long value) {
    Bytes out;
    PutU32(out, static_cast<std::uint32_t>(value));
    return out;
}
unsigned long Number(const Bytes& value) {
    Reader in(value);
    unsigned long number = 0;
    while (in.left() > 0) {
        number = number << 8 | in.u8();
    }
    return number;
}
Bytes Mac(Manager& manager) {
    Bytes mac(6);
    manager.GetMacAddress(mac.data());
    return mac;
}

// What a write leaves to report: nothing for success, else the error byte.
using WriteResult = std::optional<std::uint8_t>;

// One property. `read` gives all its elements; `write` (none for a read-only
// property) takes all of them, with the written ones replaced.
struct Property {
    std::uint16_t objectType;
    std::uint8_t pid;
    std::uint8_t elementSize;
    Bytes (*read)(Objects&);
    WriteResult (*write)(Objects&, const Bytes&);
};

constexpr Property kProperties[] = {
    {kDeviceObject, 1, 2, [](Objects&) { return U16(kDeviceObject); }, nullptr},
    {kDeviceObject, 11, 6,
     [](Objects& o) {
         return Bytes(o.identity().serialNumber.begin(), o.identity().serialNumber.end());
     },
     nullptr},
    {kDeviceObject, 12, 2, [](Objects& o) { return U16(o.identity().manufacturerId); }, nullptr},
    {kDeviceObject, 71, 2,
     [](Objects&) {
         Bytes list = U16(kDeviceObject);
         PutU16(list, kIpParameterObject);
         return list;
     },
     nullptr},
    {kIpParameterObject, 1, 2, [](Objects&) { return U16(kIpParameterObject); }, nullptr},
    {kIpParameterObject, 51, 2, [](Objects& o) { return U16(o.host().projectInstallationId); },
     [](Objects& o, const Bytes& v) {
         o.host().projectInstallationId = static_cast<std::uint16_t>(Number(v));
         return WriteResult();
     }},
    {kIpParameterObject, 52, 2, [](Objects& o) { return U16(o.host().individualAddress); },
     [](Objects& o, const Bytes& v) {
         o.host().individualAddress = static_cast<std::uint16_t>(Number(v));
         return WriteResult();
     }},
    {kIpParameterObject, 53, 2, [](Objects&) { return Bytes(); }, nullptr},
    {kIpParameterObject, 54, 1, [](Objects& o) { return U8(o.host().currentAssignmentMethod); },
     nullptr},
    {kIpParameterObject, 55, 1,
     [](Objects& o) { return U8(static_cast<unsigned>(o.manager().GetIpAssignmentMethods())); },
     [](Objects& o, const Bytes& v) {
         if (v[0] == 0 || (v[0] & ~kAllMethods) != 0) {
             return WriteResult(Cemi::kOutOfRange);
         }
         o.manager().SetIpAssignmentMethods(v[0]);
         return WriteResult();
     }},
    {kIpParameterObject, 56, 1, [](Objects& o) { return U8(o.manager().GetIpCapabilities()); },
     nullptr},
    {kIpParameterObject, 57, 4, [](Objects& o) { return U32(o.manager().GetCurrentIpAddress()); },
     nullptr},
    {kIpParameterObject, 58, 4, [](Objects& o) { return U32(o.manager().GetCurrentNetmask()); },
     nullptr},
    {kIpParameterObject, 59, 4, [](Objects& o) { return U32(o.manager().GetCurrentGateway()); },
     nullptr},
    {kIpParameterObject, 60, 4,
     [](Objects& o) { return U32(o.manager().GetConfiguredIpAddress()); },
     [](Objects& o, const Bytes& v) {
         o.manager().SetConfiguredIpAddress(Number(v));
         return WriteResult();
     }},
    {kIpParameterObject, 61, 4, [](Objects& o) { return U32(o.manager().GetConfiguredNetmask()); },
     [](Objects& o, const Bytes& v) {
         o.manager().SetConfiguredNetmask(Number(v));
         return WriteResult();
     }},
    {kIpParameterObject, 62, 4, [](Objects& o) { return U32(o.manager().GetConfiguredGateway()); },
     [](Objects& o, const Bytes& v) {
         o.manager().SetConfiguredGateway(Number(v));
         return WriteResult();
     }},
    {kIpParameterObject, 63, 4, [](Objects& o) { return U32(o.host().dhcpServer); }, nullptr},
    {kIpParameterObject, 64, 6, [](Objects& o) { return Mac(o.manager()); }, nullptr},
    {kIpParameterObject, 65, 4, [](Objects&) { return U32(kSystemSetupMulticast); }, nullptr},
    {kIpParameterObject, 66, 4, [](Objects& o) { return U32(o.host().routingMulticast); },
     [](Objects& o, const Bytes& v) {
         o.host().routingMulticast = static_cast<std::uint32_t>(Number(v));
         return WriteResult();
     }},
    {kIpParameterObject, 67, 1, [](Objects& o) { return U8(o.host().ttl); },
     [](Objects& o, const Bytes& v) {
         o.host().ttl = v[0];
         return WriteResult();
     }},
    {kIpParameterObject, 68, 2, [](Objects&) { return U16(kDeviceManagementCapability); }, nullptr},
    {kIpParameterObject, 69, 1, [](Objects&) { return U8(0); }, nullptr},
    {kIpParameterObject, 70, 1, [](Objects&) { return U8(0); }, nullptr},
    {kIpParameterObject, 76, 1,
     [](Objects& o) { return Bytes(o.host().friendlyName.begin(), o.host().friendlyName.end()); },
     [](Objects& o, const Bytes& v) {
         std::copy(v.begin(), v.end(), o.host().friendlyName.begin());
         return WriteResult();
     }},
    {kIpParameterObject, kPidFirstDns, 4,
     [](Objects& o) { return U32(o.manager().GetDNSAddress(1)); },
     [](Objects& o, const Bytes& v) {
         o.manager().SetDNSAddress(1, Number(v));
         return WriteResult();
     }},
    {kIpParameterObject, kPidSecondDns, 4,
     [](Objects& o) { return U32(o.manager().GetDNSAddress(2)); },
     [](Objects& o, const Bytes& v) {
         o.manager().SetDNSAddress(2, Number(v));
         return WriteResult();
     }},
};

const Property* Find(const Cemi::Message& request) {
    if (request.instance != 1) {
        return nullptr;
    }
    const auto* found =
        std::find_if(std::begin(kProperties), std::end(kProperties), [&](const Property& p) {
            return p.objectType == request.objectType && p.pid == request.pid;
        });
    return found == std::end(kProperties) ? nullptr : found;
}

Cemi::Message Confirmation(const Cemi::Message& request, std::uint8_t code, Bytes data) {
    Cemi::Message confirmation = request;
    confirmation.code = code;
    confirmation.data = std::move(data);
    return confirmation;
}

Cemi::Message Refusal(const Cemi::Message& request, std::uint8_t code, std::uint8_t error) {
    Cemi::Message refusal = Confirmation(request, code, {error});
    refusal.count = 0;
    return refusal;
}

// Elements `start` to `start + count - 1` (from 1) exist.
bool Within(const Cemi::Message& request, std::size_t elements) {
    return request.count > 0 && request.start + request.count - 1u <= elements;
}

std::ptrdiff_t Offset(std::size_t elements, std::size_t size) {
    return static_cast<std::ptrdiff_t>(elements * size);
}

template <typename Array>
void CopyName(Array& to, const std::string& name) {
    std::copy_n(name.begin(), std::min(name.size(), to.size()), to.begin());
}

} // namespace

InterfaceObjects::InterfaceObjects(KnxStack::IIpConfigurationManager& manager,
                                   const DeviceIdentity& identity)
    : m_manager(manager), m_identity(identity) {
    m_host.projectInstallationId = identity.projectInstallationId;
    m_host.individualAddress = identity.individualAddress;
    CopyName(m_host.friendlyName, identity.friendlyName);
    NoteAssignmentMethodInEffect();
}

// A commit puts the device on DHCP when the configured methods include it and
// on the configured static address otherwise.
void InterfaceObjects::NoteAssignmentMethodInEffect() {
    m_host.currentAssignmentMethod =
        (m_manager.GetIpAssignmentMethods() & kDhcpMethod) != 0 ? kDhcpMethod : kManualMethod;
}

std::optional<Cemi::Message> InterfaceObjects::Serve(const Cemi::Message& request) {
    switch (request.code) {
        case Cemi::kPropReadReq:
            return Read(request);
        case Cemi::kPropWriteReq:
            return Write(request);
        case Cemi::kResetReq:
            m_manager.CommitConfiguration();
            NoteAssignmentMethodInEffect();
            return Cemi::Message{Cemi::kResetInd, 0, 0, 0, 0, 0, {}};
        default:
            return std::nullopt;
    }
}

Cemi::Message InterfaceObjects::Read(const Cemi::Message& request) {
    const Property* property = Find(request);
    if (property == nullptr) {
        return Refusal(request, Cemi::kPropReadCon, Cemi::kNonExistent);
    }
    const Bytes value = property->read(*this);
    const std::size_t size = property->elementSize;
    const std::size_t elements = value.size() / size;
    if (request.start == 0) { // the element count, as one element whatever count was asked for
        Cemi::Message count = Confirmation(request, Cemi::kPropReadCon, U16(elements));
        count.count = 1;
        return count;
    }
    if (!Within(request, elements)) {
        return Refusal(request, Cemi::kPropReadCon, Cemi::kIndexOutOfRange);
    }
    const auto first = value.begin() + Offset(request.start - 1u, size);
    return Confirmation(request, Cemi::kPropReadCon,
                        Bytes(first, first + Offset(request.count, size)));
}

Cemi::Message InterfaceObjects::Write(const Cemi::Message& request) {
    const Property* property = Find(request);
    if (property == nullptr) {
        return Refusal(request, Cemi::kPropWriteCon, Cemi::kNonExistent);
    }
    if (property->write == nullptr || request.start == 0) {
        return Refusal(request, Cemi::kPropWriteCon, Cemi::kReadOnly);
    }
    const std::size_t size = property->elementSize;
    if (request.count == 0 ||
        static_cast<std::ptrdiff_t>(request.data.size()) != Offset(request.count, size)) {
        return Refusal(request, Cemi::kPropWriteCon, Cemi::kTypeConflict);
    }
    Bytes value = property->read(*this);
    if (!Within(request, value.size() / size)) {
        return Refusal(request, Cemi::kPropWriteCon, Cemi::kIndexOutOfRange);
    }
    std::copy(request.data.begin(), request.data.end(),
              value.begin() + Offset(request.start - 1u, size));
    if (const WriteResult error = property->write(*this, value)) {
        return Refusal(request, Cemi::kPropWriteCon, *error);
    }
    return Confirmation(request, Cemi::kPropWriteCon, {});
}

Description InterfaceObjects::Describe() {
    Description description;
    DeviceInfo& device = description.device.emplace();
    device.individualAddress = m_host.individualAddress;
    device.projectInstallationId = m_host.projectInstallationId;
    device.serialNumber = m_identity.serialNumber;
    device.routingMulticast = m_host.routingMulticast;
    m_manager.GetMacAddress(device.mac.data());
    device.friendlyName = m_host.friendlyName;
    description.families = {{kCoreFamily, 1}, {kDeviceManagementFamily, 1}};
    description.ipConfig = IpConfig{static_cast<std::uint32_t>(m_manager.GetConfiguredIpAddress()),
                                    static_cast<std::uint32_t>(m_manager.GetConfiguredNetmask()),
                                    static_cast<std::uint32_t>(m_manager.GetConfiguredGateway()),
                                    static_cast<std::uint8_t>(m_manager.GetIpCapabilities()),
                                    static_cast<std::uint8_t>(m_manager.GetIpAssignmentMethods())};
    description.ipCurrentConfig =
        IpCurrentConfig{static_cast<std::uint32_t>(m_manager.GetCurrentIpAddress()),
                        static_cast<std::uint32_t>(m_manager.GetCurrentNetmask()),
                        static_cast<std::uint32_t>(m_manager.GetCurrentGateway()),
                        m_host.dhcpServer, m_host.currentAssignmentMethod};
    description.knxAddresses = std::vector<std::uint16_t>{m_host.individualAddress};
    return description;
}

} // namespace KnxNetIp
