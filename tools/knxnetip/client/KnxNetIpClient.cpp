// knxnetip-client: asks a KNXnet/IP server for its description or search
// response, reads and writes one property over device management, or resets it.
#include "Client.h"
#include "DeviceIdentity.h"

#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace KnxNetIp;

const char* const kUsage =
    "usage: knxnetip-client [--timeout MS] COMMAND ADDRESS[:PORT]\n"
    "  search                            search response of the server\n"
    "  describe                          description of the server\n"
    "  read OBJECT PID [START [COUNT]]   read a property (start 1, count 1)\n"
    "  write OBJECT PID VALUE [START [COUNT]]\n"
    "                                    write a property; VALUE is a dotted IPv4\n"
    "                                    address or hexadecimal bytes\n"
    "  reset                             restart: the server applies what was written\n"
    "OBJECT is an object type (0 device, 11 KNXnet/IP parameters); numbers may be 0x-prefixed.\n";

std::string Hex(const Bytes& bytes) {
    std::ostringstream text;
    for (const std::uint8_t byte : bytes) {
        text << std::hex << std::setw(2) << std::setfill('0') << static_cast<unsigned>(byte);
    }
    return text.str();
}

std::optional<unsigned long> Number(const std::string& text, unsigned long maximum) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || value > maximum) {
        return std::nullopt;
    }
    return value;
}

std::optional<Bytes> Value(const std::string& text) {
    if (text.find('.') != std::string::npos) {
        const std::optional<Endpoint> address = ParseEndpoint(text);
        if (!address) {
            return std::nullopt;
        }
        Bytes bytes;
        PutU32(bytes, address->address);
        return bytes;
    }
    if (text.empty() || text.size() % 2 != 0 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return std::nullopt;
    }
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const std::optional<unsigned long> byte = Number("0x" + text.substr(i, 2), 0xFF);
        bytes.push_back(static_cast<std::uint8_t>(*byte));
    }
    return bytes;
}

std::string Text(const std::array<std::uint8_t, 30>& name) {
    std::string text(name.begin(), name.end());
    return text.substr(0, text.find('\0'));
}

void Print(const Description& description) {
    if (const auto& device = description.device) {
        std::cout << "name: " << Text(device->friendlyName) << "\n"
                  << "individual address: " << IndividualAddressText(device->individualAddress)
                  << "\n"
                  << "project installation id: " << device->projectInstallationId << "\n"
                  << "serial number: "
                  << Hex({device->serialNumber.begin(), device->serialNumber.end()})
                  << "\nMAC address: " << Hex({device->mac.begin(), device->mac.end()}) << "\n"
                  << "routing multicast: " << ToString(device->routingMulticast) << "\n";
    }
    for (const auto& [family, version] : description.families) {
        std::cout << "service family: " << static_cast<int>(family) << " version "
                  << static_cast<int>(version) << "\n";
    }
    if (const auto& ip = description.ipConfig) {
        std::cout << "configured: " << ToString(ip->address) << " mask " << ToString(ip->netmask)
                  << " gateway " << ToString(ip->gateway) << " capabilities "
                  << static_cast<int>(ip->capabilities) << " methods "
                  << static_cast<int>(ip->assignmentMethod) << "\n";
    }
    if (const auto& ip = description.ipCurrentConfig) {
        std::cout << "current: " << ToString(ip->address) << " mask " << ToString(ip->netmask)
                  << " gateway " << ToString(ip->gateway) << " DHCP server "
                  << ToString(ip->dhcpServer) << " method "
                  << static_cast<int>(ip->assignmentMethod) << "\n";
    }
}

// Runs one command; the words are those between the command and the address.
Result<void> Run(Client& client, const std::string& command,
                 const std::vector<std::string>& words) {
    const auto number = [&](std::size_t i, unsigned long maximum, unsigned long fallback) {
        return i < words.size() ? Number(words[i], maximum)
                                : std::optional<unsigned long>(fallback);
    };
    if ((command == "search" || command == "describe") && words.empty()) {
        if (command == "search") {
            Result<SearchResponse> response = client.Search();
            if (!response) {
                return Error{response.error()};
            }
            std::cout << "control endpoint: " << ToString(response->control.endpoint) << "\n";
            Print(response->description);
            return Ok{};
        }
        Result<Description> description = client.Describe();
        if (!description) {
            return Error{description.error()};
        }
        Print(*description);
        return Ok{};
    }
    const bool write = command == "write";
    const std::size_t extra = write ? 3 : 2;
    const auto object = number(0, 0xFFFF, 0);
    const auto pid = number(1, 0xFF, 0);
    const auto start = number(extra, 0x0FFF, 1);
    const auto count = number(extra + 1, 0x0F, 1);
    const std::optional<Bytes> value = write && words.size() > 2 ? Value(words[2]) : Bytes();
    const bool property =
        (command == "read" || write) && words.size() >= extra && words.size() <= extra + 2;
    if (!(command == "reset" && words.empty()) &&
        !(property && object && pid && start && count && value)) {
        return Error{"bad arguments\n" + std::string(kUsage)};
    }
    if (Result<void> connected = client.Connect(); !connected) {
        return connected;
    }
    Result<void> done = Ok{};
    if (command == "reset") {
        done = client.Reset();
    } else if (write) {
        done = client.WriteProperty(
            static_cast<std::uint16_t>(*object), static_cast<std::uint8_t>(*pid), *value,
            static_cast<std::uint16_t>(*start), static_cast<std::uint8_t>(*count));
    } else {
        Result<Bytes> read = client.ReadProperty(
            static_cast<std::uint16_t>(*object), static_cast<std::uint8_t>(*pid),
            static_cast<std::uint16_t>(*start), static_cast<std::uint8_t>(*count));
        done = read ? Result<void>(Ok{}) : Error{read.error()};
        if (read) {
            std::cout << Hex(*read) << "\n";
        }
    }
    const Result<void> disconnected = client.Disconnect();
    return !done ? done : disconnected;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    std::chrono::milliseconds timeout(3000);
    if (args.size() >= 2 && args[0] == "--timeout") {
        const std::optional<unsigned long> ms = Number(args[1], 600000);
        if (!ms) {
            std::cerr << kUsage;
            return 2;
        }
        timeout = std::chrono::milliseconds(*ms);
        args.erase(args.begin(), args.begin() + 2);
    }
    const std::optional<Endpoint> server =
        args.size() >= 2 ? ParseEndpoint(args.back()) : std::nullopt;
    if (!server) {
        std::cerr << kUsage;
        return 2;
    }
    Result<Client> client = Client::Open(*server, timeout);
    const Result<void> done =
        client ? Run(*client, args[0], {args.begin() + 1, args.end() - 1}) : Error{client.error()};
    if (!done) {
        std::cerr << "knxnetip-client: " << done.error() << "\n";
        return 1;
    }
    return 0;
}
