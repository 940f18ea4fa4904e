#include "Commands.h"

#include "Address.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace {

using IpConfig = KnxStack::IIpConfigurationManager;
using Output = Result<std::string>;

Result<unsigned long> ParseNumber(const std::string& text) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || value < 0 || value > INT_MAX) {
        return Error{"not a number from 0 to " + std::to_string(INT_MAX) + ": '" + text + "'"};
    }
    return static_cast<unsigned long>(value);
}

// One value of the IP configuration object: dotted IPv4 text or a plain number.
struct Value {
    const char* name;
    unsigned long (*get)(IpConfig&);
    void (*set)(IpConfig&, unsigned long);
    bool isAddress;
};

constexpr Value kConfiguredValues[] = {
    {"ip", [](IpConfig& c) { return c.GetConfiguredIpAddress(); },
     [](IpConfig& c, unsigned long v) { c.SetConfiguredIpAddress(v); }, true},
    {"netmask", [](IpConfig& c) { return c.GetConfiguredNetmask(); },
     [](IpConfig& c, unsigned long v) { c.SetConfiguredNetmask(v); }, true},
    {"gateway", [](IpConfig& c) { return c.GetConfiguredGateway(); },
     [](IpConfig& c, unsigned long v) { c.SetConfiguredGateway(v); }, true},
    {"dns1", [](IpConfig& c) { return c.GetDNSAddress(1); },
     [](IpConfig& c, unsigned long v) { c.SetDNSAddress(1, v); }, true},
    {"dns2", [](IpConfig& c) { return c.GetDNSAddress(2); },
     [](IpConfig& c, unsigned long v) { c.SetDNSAddress(2, v); }, true},
    {"methods", [](IpConfig& c) { return static_cast<unsigned long>(c.GetIpAssignmentMethods()); },
     [](IpConfig& c, unsigned long v) { c.SetIpAssignmentMethods(static_cast<int>(v)); }, false},
};

constexpr Value kCurrentValues[] = {
    {"ip", [](IpConfig& c) { return c.GetCurrentIpAddress(); }, nullptr, true},
    {"netmask", [](IpConfig& c) { return c.GetCurrentNetmask(); }, nullptr, true},
    {"gateway", [](IpConfig& c) { return c.GetCurrentGateway(); }, nullptr, true},
};

template <typename Entry, std::size_t N>
Result<const Entry*> Find(const Entry (&table)[N], const std::string& name, const char* what) {
    for (const Entry& entry : table) {
        if (name == entry.name) {
            return &entry;
        }
    }
    return Error{std::string("unknown ") + what + " '" + name + "'"};
}

std::string Show(const char* kind, const Value& value, IpConfig& ipConfig) {
    const unsigned long number = value.get(ipConfig);
    return std::string(kind) + " " + value.name + " = " +
           (value.isAddress ? FormatAddress(number) : std::to_string(number));
}

Output Get(ServiceObjects& objects, const Words& arguments) {
    const Result<const Value*> value = Find(kConfiguredValues, arguments[0], "value");
    if (!value) {
        return Error{value.error()};
    }
    return Show("configured", **value, objects.ipConfig);
}

Output Set(ServiceObjects& objects, const Words& arguments) {
    const Result<const Value*> value = Find(kConfiguredValues, arguments[0], "value");
    if (!value) {
        return Error{value.error()};
    }
    const Result<unsigned long> number =
        (*value)->isAddress ? ParseAddress(arguments[1]) : ParseNumber(arguments[1]);
    if (!number) {
        return Error{number.error()};
    }
    (*value)->set(objects.ipConfig, *number);
    return Show("configured", **value, objects.ipConfig);
}

Output Current(ServiceObjects& objects, const Words& arguments) {
    const Result<const Value*> value = Find(kCurrentValues, arguments[0], "current value");
    if (!value) {
        return Error{value.error()};
    }
    return Show("current", **value, objects.ipConfig);
}

Output Mac(ServiceObjects& objects, const Words&) {
    unsigned char mac[6] = {};
    objects.ipConfig.GetMacAddress(mac);
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return std::string("mac = ") + text;
}

struct Command {
    const char* name;
    const char* arguments; // as shown in the usage text
    std::size_t argumentCount;
    Output (*run)(ServiceObjects&, const Words&); // null: end the session
};

constexpr Command kCommands[] = {
    {"get", "ip|netmask|gateway|dns1|dns2|methods", 1, Get},
    {"set", "ip|netmask|gateway|dns1|dns2|methods VALUE", 2, Set},
    {"current", "ip|netmask|gateway", 1, Current},
    {"mac", "", 0, Mac},
    {"capabilities", "", 0,
     [](ServiceObjects& s, const Words&) -> Output {
         return "capabilities = " + std::to_string(s.ipConfig.GetIpCapabilities());
     }},
    {"commit", "", 0,
     [](ServiceObjects& s, const Words&) -> Output {
         s.ipConfig.CommitConfiguration();
         return std::string("commit done");
     }},
    {"factory-reset", "", 0,
     [](ServiceObjects& s, const Words&) -> Output {
         s.factoryReset.OnFactoryReset();
         return std::string("factory reset done");
     }},
    {"process-time", "", 0,
     [](ServiceObjects& s, const Words&) -> Output {
         return "process time = " + std::to_string(s.factoryReset.GetProcessTime());
     }},
    {"quit", "", 0, nullptr},
};

} // namespace

Words SplitCommandLine(const std::string& line) {
    std::istringstream in(line);
    Words words;
    for (std::string word; in >> word && word[0] != '#';) {
        words.push_back(word);
    }
    return words;
}

Result<std::optional<std::string>> RunCommand(ServiceObjects& objects, const Words& words) {
    const Result<const Command*> command = Find(kCommands, words[0], "command");
    if (!command) {
        return Error{command.error()};
    }
    if (words.size() - 1 != (*command)->argumentCount) {
        return Error{std::string("usage: ") + (*command)->name + " " + (*command)->arguments};
    }
    if ((*command)->run == nullptr) {
        return std::optional<std::string>();
    }
    Output output = (*command)->run(objects, Words(words.begin() + 1, words.end()));
    if (!output) {
        return Error{output.error()};
    }
    return std::optional<std::string>(std::move(*output));
}

void PrintCommands(std::ostream& out) {
    for (const Command& command : kCommands) {
        out << "    " << command.name << " " << command.arguments << "\n";
    }
}
