#include "Frame.h"

#include "Address.h"

namespace KnxNetIp {

namespace {

constexpr std::uint8_t kHeaderLength = 0x06;
constexpr std::uint8_t kVersion10 = 0x10;
constexpr std::uint8_t kHpaiLength = 8;
constexpr std::uint8_t kConnectionHeaderLength = 4;
constexpr std::uint8_t kMandatory = 0x80;

enum DibType : std::uint8_t {
    kDeviceInfoDib = 0x01,
    kFamiliesDib = 0x02,
    kIpConfigDib = 0x03,
    kIpCurrentConfigDib = 0x04,
    kKnxAddressesDib = 0x05,
};
enum ParameterType : std::uint8_t {
    kProgrammingMode = 0x01,
    kMacAddress = 0x02,
    kServiceFamily = 0x03,
    kRequestDibs = 0x04,
};

// Writes a length-prefixed block: its length byte covers itself and the type byte.
template <typename Body>
void PutBlock(Bytes& out, std::uint8_t type, Body&& body) {
    const std::size_t start = out.size();
    PutU8(out, 0);
    PutU8(out, type);
    body();
    out[start] = static_cast<std::uint8_t>(out.size() - start);
}

// Reads a block's contents as one exact structure.
template <typename Body>
void ReadExactly(Reader& in, Bytes&& contents, Body&& body) {
    Reader inner(contents);
    body(inner);
    if (!inner.ok() || inner.left() != 0) {
        in.fail();
    }
}

void PutDeviceInfo(Bytes& out, const DeviceInfo& dib) {
    PutU8(out, dib.medium);
    PutU8(out, dib.status);
    PutU16(out, dib.individualAddress);
    PutU16(out, dib.projectInstallationId);
    PutBytes(out, dib.serialNumber);
    PutU32(out, dib.routingMulticast);
    PutBytes(out, dib.mac);
    PutBytes(out, dib.friendlyName);
}

void ReadDeviceInfo(Reader& in, DeviceInfo& dib) {
    dib.medium = in.u8();
    dib.status = in.u8();
    dib.individualAddress = in.u16();
    dib.projectInstallationId = in.u16();
    dib.serialNumber = in.array<6>();
    dib.routingMulticast = in.u32();
    dib.mac = in.array<6>();
    dib.friendlyName = in.array<30>();
}

void ReadDib(Reader& in, std::uint8_t type, Bytes&& contents, Description& out) {
    switch (type) {
        case kDeviceInfoDib:
            return ReadExactly(in, std::move(contents),
                               [&](Reader& r) { ReadDeviceInfo(r, out.device.emplace()); });
        case kFamiliesDib:
            return ReadExactly(in, std::move(contents), [&](Reader& r) {
                out.families.clear();
                while (r.left() >= 2) {
                    const std::uint8_t family = r.u8();
                    out.families.emplace_back(family, r.u8());
                }
            });
        case kIpConfigDib:
            return ReadExactly(in, std::move(contents), [&](Reader& r) {
                IpConfig& dib = out.ipConfig.emplace();
                dib.address = r.u32();
                dib.netmask = r.u32();
                dib.gateway = r.u32();
                dib.capabilities = r.u8();
                dib.assignmentMethod = r.u8();
            });
        case kIpCurrentConfigDib:
            return ReadExactly(in, std::move(contents), [&](Reader& r) {
                IpCurrentConfig& dib = out.ipCurrentConfig.emplace();
                dib.address = r.u32();
                dib.netmask = r.u32();
                dib.gateway = r.u32();
                dib.dhcpServer = r.u32();
                dib.assignmentMethod = r.u8();
                r.u8(); // reserved
            });
        case kKnxAddressesDib:
            return ReadExactly(in, std::move(contents), [&](Reader& r) {
                std::vector<std::uint16_t>& addresses = out.knxAddresses.emplace();
                while (r.left() >= 2) {
                    addresses.push_back(r.u16());
                }
            });
        default:
            return; // a DIB this side does not know
    }
}

void ReadParameter(Reader& in, std::uint8_t type, Bytes&& contents, SearchParameters& out) {
    switch (type & ~kMandatory) {
        case kProgrammingMode:
            return ReadExactly(in, std::move(contents),
                               [&](Reader&) { out.programmingMode = true; });
        case kMacAddress:
            return ReadExactly(in, std::move(contents), [&](Reader& r) { out.mac = r.array<6>(); });
        case kServiceFamily:
            return ReadExactly(in, std::move(contents), [&](Reader& r) {
                const std::uint8_t family = r.u8();
                out.family.emplace(family, r.u8());
            });
        case kRequestDibs:
            if (contents.size() < 2 || contents.size() % 2 != 0) {
                return in.fail();
            }
            for (const std::uint8_t dibType : contents) {
                if (dibType != 0) {
                    out.dibTypes.push_back(dibType);
                }
            }
            return;
        default:
            out.unsupportedMandatory = out.unsupportedMandatory || (type & kMandatory) != 0;
    }
}

// Reads length-prefixed blocks up to the end of `in`.
template <typename Each>
void ReadBlocks(Reader& in, Each&& each) {
    while (in.ok() && in.left() > 0) {
        const std::uint8_t length = in.u8();
        const std::uint8_t type = in.u8();
        if (length < 2) {
            return in.fail();
        }
        Bytes contents = in.bytes(length - 2);
        if (in.ok()) {
            each(type, std::move(contents));
        }
    }
}

} // namespace

bool operator==(const Endpoint& a, const Endpoint& b) {
    return a.address == b.address && a.port == b.port;
}

std::optional<Endpoint> ParseEndpoint(const std::string& text) {
    const std::size_t colon = text.find(':');
    const Result<unsigned long> address = ParseAddress(text.substr(0, colon));
    if (!address) {
        return std::nullopt;
    }
    Endpoint endpoint{static_cast<std::uint32_t>(*address), kDefaultPort};
    if (colon != std::string::npos) {
        const std::string port = text.substr(colon + 1);
        if (port.empty() || port.size() > 5 ||
            port.find_first_not_of("0123456789") != std::string::npos || std::stoul(port) > 65535) {
            return std::nullopt;
        }
        endpoint.port = static_cast<std::uint16_t>(std::stoul(port));
    }
    return endpoint;
}

std::string ToString(std::uint32_t address) {
    return FormatAddress(address);
}

std::string ToString(const Endpoint& endpoint) {
    return ToString(endpoint.address) + ":" + std::to_string(endpoint.port);
}

std::optional<Frame> DecodeFrame(const std::uint8_t* data, std::size_t size) {
    Reader in(data, size);
    const std::uint8_t headerLength = in.u8();
    const std::uint8_t version = in.u8();
    Frame frame{in.u16(), {}};
    const std::uint16_t length = in.u16();
    if (!in.ok() || headerLength != kHeaderLength || version != kVersion10 || length != size) {
        return std::nullopt;
    }
    frame.body = in.rest();
    return frame;
}

Bytes EncodeFrame(Service service, const Bytes& body) {
    Bytes out{kHeaderLength, kVersion10};
    PutU16(out, static_cast<unsigned>(service));
    PutU16(out, static_cast<unsigned>(kHeaderSize + body.size()));
    PutBytes(out, body);
    return out;
}

void Put(Bytes& out, const Hpai& hpai) {
    PutBlock(out, hpai.protocol, [&] {
        PutU32(out, hpai.endpoint.address);
        PutU16(out, hpai.endpoint.port);
    });
}

void Read(Reader& in, Hpai& hpai) {
    if (in.u8() != kHpaiLength) {
        in.fail();
    }
    hpai.protocol = in.u8();
    hpai.endpoint.address = in.u32();
    hpai.endpoint.port = in.u16();
}

void Put(Bytes& out, const SearchRequestExtended& message) {
    Put(out, message.discovery);
    const SearchParameters& parameters = message.parameters;
    if (parameters.programmingMode) {
        PutBlock(out, kProgrammingMode | kMandatory, [] {});
    }
    if (parameters.mac) {
        PutBlock(out, kMacAddress | kMandatory, [&] { PutBytes(out, *parameters.mac); });
    }
    if (parameters.family) {
        PutBlock(out, kServiceFamily | kMandatory, [&] {
            PutU8(out, parameters.family->first);
            PutU8(out, parameters.family->second);
        });
    }
    if (!parameters.dibTypes.empty()) {
        PutBlock(out, kRequestDibs, [&] {
            PutBytes(out, parameters.dibTypes);
            if (parameters.dibTypes.size() % 2 != 0) {
                PutU8(out, 0);
            }
        });
    }
}

void Read(Reader& in, SearchRequestExtended& message) {
    Read(in, message.discovery);
    ReadBlocks(in, [&](std::uint8_t type, Bytes&& contents) {
        ReadParameter(in, type, std::move(contents), message.parameters);
    });
}

void Put(Bytes& out, const Description& message) {
    if (message.device) {
        PutBlock(out, kDeviceInfoDib, [&] { PutDeviceInfo(out, *message.device); });
    }
    if (!message.families.empty()) {
        PutBlock(out, kFamiliesDib, [&] {
            for (const auto& [family, version] : message.families) {
                PutU8(out, family);
                PutU8(out, version);
            }
        });
    }
    if (const auto& dib = message.ipConfig) {
        PutBlock(out, kIpConfigDib, [&] {
            PutU32(out, dib->address);
            PutU32(out, dib->netmask);
            PutU32(out, dib->gateway);
            PutU8(out, dib->capabilities);
            PutU8(out, dib->assignmentMethod);
        });
    }
    if (const auto& dib = message.ipCurrentConfig) {
        PutBlock(out, kIpCurrentConfigDib, [&] {
            PutU32(out, dib->address);
            PutU32(out, dib->netmask);
            PutU32(out, dib->gateway);
            PutU32(out, dib->dhcpServer);
            PutU8(out, dib->assignmentMethod);
            PutU8(out, 0);
        });
    }
    if (message.knxAddresses) {
        PutBlock(out, kKnxAddressesDib, [&] {
            for (const std::uint16_t address : *message.knxAddresses) {
                PutU16(out, address);
            }
        });
    }
}

void Read(Reader& in, Description& message) {
    ReadBlocks(in, [&](std::uint8_t type, Bytes&& contents) {
        ReadDib(in, type, std::move(contents), message);
    });
}

void Put(Bytes& out, const SearchResponse& message) {
    Put(out, message.control);
    Put(out, message.description);
}

void Read(Reader& in, SearchResponse& message) {
    Read(in, message.control);
    Read(in, message.description);
}

void Put(Bytes& out, const ConnectRequest& message) {
    Put(out, message.control);
    Put(out, message.data);
    PutBlock(out, message.connectionType, [&] { PutBytes(out, message.options); });
}

void Read(Reader& in, ConnectRequest& message) {
    Read(in, message.control);
    Read(in, message.data);
    const std::uint8_t length = in.u8();
    message.connectionType = in.u8();
    if (length < 2 || length - 2u != in.left()) {
        in.fail();
    }
    message.options = in.rest();
}

void Put(Bytes& out, const ConnectResponse& message) {
    PutU8(out, message.channel);
    PutU8(out, message.status);
    if (message.status == kNoError) {
        Put(out, message.data);
        PutBlock(out, message.connectionType, [] {});
    }
}

void Read(Reader& in, ConnectResponse& message) {
    message.channel = in.u8();
    message.status = in.u8();
    if (message.status == kNoError) {
        Read(in, message.data);
        if (in.u8() != 2) {
            in.fail();
        }
        message.connectionType = in.u8();
    }
}

void Put(Bytes& out, const ChannelRequest& message) {
    PutU8(out, message.channel);
    PutU8(out, 0);
    Put(out, message.control);
}

void Read(Reader& in, ChannelRequest& message) {
    message.channel = in.u8();
    in.u8(); // reserved
    Read(in, message.control);
}

void Put(Bytes& out, const ChannelStatus& message) {
    PutU8(out, message.channel);
    PutU8(out, message.status);
}

void Read(Reader& in, ChannelStatus& message) {
    message.channel = in.u8();
    message.status = in.u8();
}

void Put(Bytes& out, const ConnectionHeader& message) {
    PutU8(out, kConnectionHeaderLength);
    PutU8(out, message.channel);
    PutU8(out, message.sequence);
    PutU8(out, message.status);
}

void Read(Reader& in, ConnectionHeader& message) {
    if (in.u8() != kConnectionHeaderLength) {
        in.fail();
    }
    message.channel = in.u8();
    message.sequence = in.u8();
    message.status = in.u8();
}

void Put(Bytes& out, const ConfigurationRequest& message) {
    Put(out, message.header);
    PutBytes(out, message.cemi);
}

void Read(Reader& in, ConfigurationRequest& message) {
    Read(in, message.header);
    message.cemi = in.rest();
}

} // namespace KnxNetIp
