// knx-addon-host: loads a KNX stack add-on by path, starts it with its own add-on
// manager, creates and configures both service objects through the registered
// factories and runs commands on them from a script or from standard input.
#include "KnxStackAddonInterface.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <unistd.h>

#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using IpConfig = KnxStack::IIpConfigurationManager;
using FactoryReset = KnxStack::IFactoryResetManager;
using Words = std::vector<std::string>;

const int kApiVersion = 20;
const char* const kProgram = "knx-addon-host";
const char* const kIpConfigClass = "DscKnxIpConfig";
const char* const kFactoryResetClass = "FactoryResetManager";

enum ExitCode { kOk = 0, kBadInput = 1, kUsage = 2, kAddonFailed = 3 };

// A failure that ends the run (or, interactively, the command) with its exit code.
struct HostError : std::runtime_error {
    HostError(ExitCode exitCode, const std::string& message)
        : std::runtime_error(message), code(exitCode) {}
    ExitCode code;
};

template <typename T>
using Factories = std::map<std::string, KnxStack::AddonClassFactory<T>*>;

// The host's add-on manager: keeps the class factories an add-on registers, by class name.
class AddonManager final : public KnxStack::IAddonManager {
public:
    Factories<IpConfig> ipConfig;
    Factories<FactoryReset> factoryReset;

    bool RegisterAddon(const char*, int) override { return false; }
    bool UnregisterAddon(const char*) override { return false; }
    bool IsClassRegistered(const char* name) override {
        return ipConfig.count(name) + factoryReset.count(name) > 0;
    }
    bool RegisterIpConfigurationManagerFactory(
        const char* name, KnxStack::AddonClassFactory<IpConfig>* factory) override {
        return ipConfig.emplace(name, factory).second;
    }
    bool RegisterFactoryResetManagerFactory(
        const char* name, KnxStack::AddonClassFactory<FactoryReset>* factory) override {
        return factoryReset.emplace(name, factory).second;
    }
    bool SetAddonOption(const char*, const char*) override { return false; }
    bool GetAddonOption(const char*, char*, unsigned int) override { return false; }
    bool UnregisterIpConfigurationManagerFactory(const char* name) override {
        return ipConfig.erase(name) > 0;
    }
    bool UnregisterFactoryResetManagerFactory(const char* name) override {
        return factoryReset.erase(name) > 0;
    }
};

using Library = std::unique_ptr<void, int (*)(void*)>;

Library OpenLibrary(const std::string& path) {
    Library library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), dlclose);
    if (!library) {
        throw HostError(kAddonFailed, std::string("cannot load add-on: ") + dlerror());
    }
    return library;
}

template <typename Function>
Function Entry(const Library& library, const char* name) {
    const auto function = reinterpret_cast<Function>(dlsym(library.get(), name));
    if (function == nullptr) {
        throw HostError(kAddonFailed, std::string("add-on has no entry function ") + name);
    }
    return function;
}

// Keeps the add-on started: addonStartup on construction, addonShutdown on destruction.
class StartedAddon {
public:
    StartedAddon(const Library& library, KnxStack::IAddonManager& manager)
        : m_manager(manager), m_shutdown(Entry<KnxStackAddonShutdownFn>(library, "addonShutdown")) {
        const auto startup = Entry<KnxStackAddonStartupFn>(library, "addonStartup");
        const int version = Entry<KnxStackGetApiVersionFn>(library, "getKnxStackApiVersion")();
        if (version != kApiVersion) {
            throw HostError(kAddonFailed, "add-on is built for API version " +
                                              std::to_string(version) + ", this host needs " +
                                              std::to_string(kApiVersion));
        }
        startup(m_manager);
    }
    ~StartedAddon() { m_shutdown(m_manager); }
    StartedAddon(const StartedAddon&) = delete;
    StartedAddon& operator=(const StartedAddon&) = delete;

private:
    KnxStack::IAddonManager& m_manager;
    KnxStackAddonShutdownFn m_shutdown;
};

template <typename T>
std::unique_ptr<T> CreateObject(const Factories<T>& factories, const char* className,
                                const ConfigPropertyMap& properties) {
    const auto factory = factories.find(className);
    T* object = nullptr;
    if (factory == factories.end() || !factory->second->Create(className, &object) ||
        object == nullptr) {
        throw HostError(kAddonFailed, std::string("add-on does not create ") + className);
    }
    std::unique_ptr<T> owned(object);
    if (!owned->Init(properties)) {
        throw HostError(kAddonFailed, std::string("Init of ") + className + " failed");
    }
    return owned;
}

struct Properties {
    ConfigPropertyMap ipConfig;
    ConfigPropertyMap factoryReset;
};

// A loaded and started add-on with one object of each service class. Members are
// released in reverse order: objects, then addonShutdown, then dlclose.
class AddonSession {
public:
    AddonSession(const std::string& path, const Properties& properties)
        : m_library(OpenLibrary(path)),
          m_started(m_library, m_manager),
          m_ipConfig(CreateObject(m_manager.ipConfig, kIpConfigClass, properties.ipConfig)),
          m_factoryReset(
              CreateObject(m_manager.factoryReset, kFactoryResetClass, properties.factoryReset)) {}

    IpConfig& ipConfig() { return *m_ipConfig; }
    FactoryReset& factoryReset() { return *m_factoryReset; }

private:
    Library m_library;
    AddonManager m_manager;
    StartedAddon m_started;
    std::unique_ptr<IpConfig> m_ipConfig;
    std::unique_ptr<FactoryReset> m_factoryReset;
};

std::string FormatAddress(unsigned long value) {
    in_addr address{htonl(static_cast<uint32_t>(value))};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return text;
}

unsigned long ParseAddress(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        throw HostError(kBadInput, "not a dotted IPv4 address: '" + text + "'");
    }
    return ntohl(address.s_addr);
}

unsigned long ParseNumber(const std::string& text) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 0);
    if (text.empty() || *end != '\0' || value < 0 || value > INT_MAX) {
        throw HostError(kBadInput,
                        "not a number from 0 to " + std::to_string(INT_MAX) + ": '" + text + "'");
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
const Entry& Find(const Entry (&table)[N], const std::string& name, const char* what) {
    for (const Entry& entry : table) {
        if (name == entry.name) {
            return entry;
        }
    }
    throw HostError(kBadInput, std::string("unknown ") + what + " '" + name + "'");
}

std::string Show(const char* kind, const Value& value, IpConfig& ipConfig) {
    const unsigned long number = value.get(ipConfig);
    return std::string(kind) + " " + value.name + " = " +
           (value.isAddress ? FormatAddress(number) : std::to_string(number));
}

std::string ShowMac(IpConfig& ipConfig) {
    unsigned char mac[6] = {};
    ipConfig.GetMacAddress(mac);
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5]);
    return std::string("mac = ") + text;
}

struct Command {
    const char* name;
    const char* arguments; // as shown in the usage text
    std::size_t argumentCount;
    std::string (*run)(AddonSession&, const Words&); // null: end the session
};

constexpr Command kCommands[] = {
    {"get", "ip|netmask|gateway|dns1|dns2|methods", 1,
     [](AddonSession& s, const Words& a) {
         return Show("configured", Find(kConfiguredValues, a[0], "value"), s.ipConfig());
     }},
    {"set", "ip|netmask|gateway|dns1|dns2|methods VALUE", 2,
     [](AddonSession& s, const Words& a) {
         const Value& value = Find(kConfiguredValues, a[0], "value");
         value.set(s.ipConfig(), value.isAddress ? ParseAddress(a[1]) : ParseNumber(a[1]));
         return Show("configured", value, s.ipConfig());
     }},
    {"current", "ip|netmask|gateway", 1,
     [](AddonSession& s, const Words& a) {
         return Show("current", Find(kCurrentValues, a[0], "current value"), s.ipConfig());
     }},
    {"mac", "", 0, [](AddonSession& s, const Words&) { return ShowMac(s.ipConfig()); }},
    {"capabilities", "", 0,
     [](AddonSession& s, const Words&) {
         return "capabilities = " + std::to_string(s.ipConfig().GetIpCapabilities());
     }},
    {"commit", "", 0,
     [](AddonSession& s, const Words&) {
         s.ipConfig().CommitConfiguration();
         return std::string("commit done");
     }},
    {"factory-reset", "", 0,
     [](AddonSession& s, const Words&) {
         s.factoryReset().OnFactoryReset();
         return std::string("factory reset done");
     }},
    {"process-time", "", 0,
     [](AddonSession& s, const Words&) {
         return "process time = " + std::to_string(s.factoryReset().GetProcessTime());
     }},
    {"quit", "", 0, nullptr},
};

// Splits a command line into words; a word starting with '#' begins a comment.
Words Split(const std::string& line) {
    std::istringstream in(line);
    Words words;
    for (std::string word; in >> word && word[0] != '#';) {
        words.push_back(word);
    }
    return words;
}

// Runs one command line; returns false when the line ends the session.
bool RunLine(AddonSession& session, const Words& words) {
    const Command& command = Find(kCommands, words[0], "command");
    if (words.size() - 1 != command.argumentCount) {
        throw HostError(kBadInput, std::string("usage: ") + command.name + " " + command.arguments);
    }
    if (command.run == nullptr) {
        return false;
    }
    std::cout << command.run(session, Words(words.begin() + 1, words.end())) << std::endl;
    return true;
}

std::istream& ReadLine(std::istream& in, std::string& line, bool interactive) {
    if (interactive) {
        std::cout << "knx> " << std::flush;
    }
    return std::getline(in, line);
}

// Runs commands until the input ends or a quit. A bad line ends a script with its exit
// code; at a terminal it is reported and the session goes on.
int RunCommands(AddonSession& session, std::istream& in, const std::string& source,
                bool interactive) {
    std::string line;
    for (int number = 1; ReadLine(in, line, interactive); ++number) {
        const Words words = Split(line);
        try {
            if (!words.empty() && !RunLine(session, words)) {
                break;
            }
        } catch (const HostError& error) {
            std::cerr << kProgram << ": " << source << ":" << number << ": " << error.what()
                      << std::endl;
            if (!interactive) {
                return error.code;
            }
        }
    }
    return kOk;
}

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

// Reads "ipconfig.KEY=VALUE" and "factoryreset.KEY=VALUE" lines; '#' starts a comment line.
Properties ReadProperties(const std::string& path) {
    Properties properties;
    if (path.empty()) {
        return properties;
    }
    std::ifstream in(path);
    if (!in) {
        throw HostError(kUsage, "cannot read config file " + path);
    }
    const std::pair<std::string, ConfigPropertyMap*> targets[] = {
        {"ipconfig.", &properties.ipConfig}, {"factoryreset.", &properties.factoryReset}};
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string text = Trim(line);
        const auto equals = text.find('=');
        if (text.empty() || text[0] == '#') {
            continue;
        }
        const auto target =
            std::find_if(std::begin(targets), std::end(targets), [&](const auto& t) {
                return text.compare(0, t.first.size(), t.first) == 0 && equals != std::string::npos;
            });
        if (target == std::end(targets)) {
            throw HostError(kBadInput,
                            path + ":" + std::to_string(number) +
                                ": expected ipconfig.KEY=VALUE or factoryreset.KEY=VALUE");
        }
        const std::string key = text.substr(target->first.size(), equals - target->first.size());
        (*target->second)[Trim(key)] = Trim(text.substr(equals + 1));
    }
    return properties;
}

void ConfigureLogging(const std::string& configFile, const std::string& level) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    if (configFile.empty()) {
        log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true, true));
        console->setLayout(std::make_unique<log4cplus::PatternLayout>("%-5p %c - %m%n"));
        root.addAppender(console);
        root.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    } else if (std::ifstream(configFile)) {
        log4cplus::PropertyConfigurator::doConfigure(configFile);
    } else {
        throw HostError(kUsage, "cannot read log configuration " + configFile);
    }
    if (!level.empty()) {
        const log4cplus::LogLevel value = log4cplus::getLogLevelManager().fromString(level);
        if (value == log4cplus::NOT_SET_LOG_LEVEL) {
            throw HostError(kUsage, "unknown log level " + level);
        }
        root.setLogLevel(value);
    }
}

struct Options {
    std::string addon = KNX_ADDON_HOST_DEFAULT_ADDON;
    std::string config, script, logConfig, logLevel;
    bool help = false;
};

void PrintUsage(std::ostream& out) {
    out << "usage: " << kProgram
        << " [--addon PATH] [--config FILE] [--script FILE] [--log-config FILE]"
           " [--log-level TRACE|DEBUG|INFO|WARN|ERROR|FATAL|OFF]\n"
           "  --addon defaults to "
        << KNX_ADDON_HOST_DEFAULT_ADDON
        << "\n  without --script, commands are read from standard input:\n";
    for (const Command& command : kCommands) {
        out << "    " << command.name << " " << command.arguments << "\n";
    }
}

Options ParseOptions(int argc, char** argv) {
    const std::map<std::string, std::string Options::*> valueOptions = {
        {"--addon", &Options::addon},
        {"--config", &Options::config},
        {"--script", &Options::script},
        {"--log-config", &Options::logConfig},
        {"--log-level", &Options::logLevel}};
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        const auto target = valueOptions.find(name);
        if (name == "--help") {
            options.help = true;
        } else if (target != valueOptions.end() && i + 1 < argc) {
            options.*(target->second) = argv[++i];
        } else {
            throw HostError(kUsage, "bad argument " + name + ", see --help");
        }
    }
    return options;
}

int Run(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    if (options.help) {
        PrintUsage(std::cout);
        return kOk;
    }
    ConfigureLogging(options.logConfig, options.logLevel);
    const Properties properties = ReadProperties(options.config);
    std::ifstream script;
    if (!options.script.empty() && (script.open(options.script), !script)) {
        throw HostError(kUsage, "cannot read script " + options.script);
    }
    AddonSession session(options.addon, properties);
    if (options.script.empty()) {
        return RunCommands(session, std::cin, "<stdin>", isatty(STDIN_FILENO) != 0);
    }
    return RunCommands(session, script, options.script, false);
}

} // namespace

int main(int argc, char** argv) {
    log4cplus::Initializer logging;
    try {
        return Run(argc, argv);
    } catch (const HostError& error) {
        std::cerr << kProgram << ": " << error.what() << std::endl;
        return error.code;
    } catch (const std::exception& error) {
        std::cerr << kProgram << ": unexpected error: " << error.what() << std::endl;
        return kBadInput;
    }
}
