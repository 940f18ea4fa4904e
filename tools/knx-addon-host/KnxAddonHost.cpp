// knx-addon-host: loads a KNX stack add-on by path, starts it with its own add-on
// manager, creates and configures both service objects through the registered
// factories and runs commands on them from a script or from standard input, or
// serves the IP configuration manager over KNXnet/IP (ServerMode.h).
#include "Addon.h"
#include "Commands.h"
#include "DeviceIdentity.h"
#include "Result.h"
#include "ServerMode.h"
#include "ServiceSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <log4cplus/configurator.h>
#include <log4cplus/consoleappender.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace {

const char* const kProgram = "knx-addon-host";

enum ExitCode {
    kOk = 0,
    kBadInput = 1,
    kUsage = 2,
    kAddonFailed = 3,
    kOutputFailed = 4,
    kServerFailed = 5
};

// Reports a failure on standard error and gives its exit code.
int Fail(ExitCode code, const std::string& message) {
    std::cerr << kProgram << ": " << message << std::endl;
    return code;
}

// Called right after a write to standard output failed, while errno tells why.
int OutputFailed() {
    return Fail(kOutputFailed,
                std::string("cannot write to standard output: ") + std::strerror(errno));
}

// Opens /dev/null on each of standard input, output and error that is closed,
// so that a closed input reads as empty and no descriptor opened later (such
// as a library's socket) takes the place of one of them.
void OpenClosedStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1 && errno == EBADF) {
            // The lowest free descriptor is `fd`: those below it are open by now.
            open("/dev/null", fd == STDIN_FILENO ? O_RDONLY : O_WRONLY);
        }
    }
}

struct Options {
    std::string addon = KNX_ADDON_HOST_DEFAULT_ADDON;
    std::string config, script, knxnetip, logConfig, logLevel;
    std::optional<KnxNetIp::Endpoint> serverEndpoint; // from --knxnetip
    bool help = false;
};

void PrintUsage(std::ostream& out) {
    out << "usage: " << kProgram
        << " [-h|--help] [--addon PATH] [--config FILE] [--script FILE] [--log-config FILE]"
           " [--log-level TRACE|DEBUG|INFO|WARN|ERROR|FATAL|OFF]\n"
           "       "
        << kProgram
        << " [--addon PATH] [--config FILE] --knxnetip ADDRESS[:PORT] [--log-...]\n"
           "  --addon defaults to "
        << KNX_ADDON_HOST_DEFAULT_ADDON
        << "\n  --knxnetip serves KNXnet/IP on UDP ADDRESS:PORT (port 3671 by default)"
           " until SIGTERM or SIGINT\n"
           "  without --script, commands are read from standard input:\n";
    PrintCommands(out);
}

Result<Options> ParseOptions(int argc, char** argv) {
    const std::map<std::string, std::string Options::*> valueOptions = {
        {"--addon", &Options::addon},          {"--config", &Options::config},
        {"--script", &Options::script},        {"--knxnetip", &Options::knxnetip},
        {"--log-config", &Options::logConfig}, {"--log-level", &Options::logLevel}};
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        const auto target = valueOptions.find(name);
        if (name == "-h" || name == "--help") {
            options.help = true;
        } else if (target != valueOptions.end() && i + 1 < argc) {
            options.*(target->second) = argv[++i];
        } else {
            return Error{"bad argument " + name + ", see --help"};
        }
    }
    if (!options.knxnetip.empty()) {
        options.serverEndpoint = KnxNetIp::ParseEndpoint(options.knxnetip);
        if (!options.serverEndpoint) {
            return Error{"bad --knxnetip " + options.knxnetip + ", expected ADDRESS[:PORT]"};
        }
        if (!options.script.empty()) {
            return Error{"--knxnetip and --script exclude each other, see --help"};
        }
    }
    return options;
}

// Opens the file an option names; a directory is refused.
Result<std::ifstream> OpenInput(const char* what, const std::string& path) {
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        return Error{std::string("cannot read ") + what + " " + path + ": " +
                     std::strerror(EISDIR)};
    }
    std::ifstream in(path);
    if (!in) {
        return Error{std::string("cannot read ") + what + " " + path + ": " + std::strerror(errno)};
    }
    return in;
}

// Logging to the console unless a configuration file is given; `level`, when
// given, overrides the root level.
Result<void> ConfigureLogging(const std::string& configFile, const std::string& level) {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    if (configFile.empty()) {
        log4cplus::SharedAppenderPtr console(new log4cplus::ConsoleAppender(true, true));
        console->setLayout(std::make_unique<log4cplus::PatternLayout>("%-5p %c - %m%n"));
        root.addAppender(console);
        root.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    } else {
        Result<std::ifstream> config = OpenInput("log configuration", configFile);
        if (!config) {
            return Error{config.error()};
        }
        log4cplus::PropertyConfigurator(*config).configure();
    }
    if (!level.empty()) {
        const log4cplus::LogLevel value = log4cplus::getLogLevelManager().fromString(level);
        if (value == log4cplus::NOT_SET_LOG_LEVEL) {
            return Error{"unknown log level " + level};
        }
        root.setLogLevel(value);
    }
    return Ok{};
}

struct Properties {
    ConfigPropertyMap ipConfig;
    ConfigPropertyMap factoryReset;
    KnxNetIp::DeviceIdentity identity;
};

std::string Trim(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r");
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(" \t\r") + 1 - first);
}

// Reads "ipconfig.KEY=VALUE", "factoryreset.KEY=VALUE" and "knx.KEY=VALUE" lines;
// '#' starts a comment line. The knx. keys, prefix and all, make the device
// identity served over KNXnet/IP; a bad one is reported at its line.
Result<Properties> ParseProperties(std::istream& in, const std::string& path) {
    Properties properties;
    ConfigPropertyMap knx;
    const std::pair<std::string, ConfigPropertyMap*> targets[] = {
        {"ipconfig.", &properties.ipConfig},
        {"factoryreset.", &properties.factoryReset},
        {"knx.", &knx}};
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        const std::string text = Trim(line);
        const auto equals = text.find('=');
        if (text.empty() || text[0] == '#') {
            continue;
        }
        const std::string where = path + ":" + std::to_string(number) + ": ";
        const auto target =
            std::find_if(std::begin(targets), std::end(targets), [&](const auto& t) {
                return text.compare(0, t.first.size(), t.first) == 0 && equals != std::string::npos;
            });
        if (target == std::end(targets)) {
            return Error{where +
                         "expected ipconfig.KEY=VALUE, factoryreset.KEY=VALUE or knx.KEY=VALUE"};
        }
        const std::size_t start = target->second == &knx ? 0 : target->first.size();
        (*target->second)[Trim(text.substr(start, equals - start))] = Trim(text.substr(equals + 1));
        if (target->second == &knx) {
            Result<KnxNetIp::DeviceIdentity> identity = KnxNetIp::ParseDeviceIdentity(knx);
            if (!identity) {
                return Error{where + identity.error()};
            }
            properties.identity = *identity;
        }
    }
    return properties;
}

// Connects to the Unix domain socket at `path` and hangs up again.
Result<void> ConnectOnce(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return Error{std::strerror(ENAMETOOLONG)};
    }
    path.copy(address.sun_path, path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const Error error{std::strerror(errno)};
        close(fd);
        return error;
    }
    close(fd);
    return Ok{};
}

// Says on standard error when no device service listens where the add-on's
// device-stack client will look for it: the add-on then keeps its defaults.
void ReportUnreachableService() {
    const std::string path = Velbor::ServiceSocketPath();
    const Result<void> connected = ConnectOnce(path);
    if (!connected) {
        std::cerr << kProgram << ": cannot reach the device service at " << path << " ("
                  << connected.error() << "); start it with 'velbor-device-service --socket "
                  << path << "' or set " << Velbor::kServiceSocketVariable
                  << " to the socket it listens on" << std::endl;
    }
}

// The started add-on with one object of each service class. Members are
// released in reverse order: objects, then addonShutdown and dlclose.
struct Session {
    std::unique_ptr<AddonHost::Addon> addon;
    std::unique_ptr<KnxStack::IIpConfigurationManager> ipConfig;
    std::unique_ptr<KnxStack::IFactoryResetManager> factoryReset;
};

Result<Session> StartSession(const std::string& path, const Properties& properties) {
    Result<std::unique_ptr<AddonHost::Addon>> addon = AddonHost::Addon::Start(path);
    if (!addon) {
        return Error{addon.error()};
    }
    Session session{std::move(*addon), nullptr, nullptr};
    // Before the objects, whose Init reads the device's settings from the service.
    ReportUnreachableService();
    auto ipConfig = session.addon->CreateIpConfig(properties.ipConfig);
    if (!ipConfig) {
        return Error{ipConfig.error()};
    }
    session.ipConfig = std::move(*ipConfig);
    auto factoryReset = session.addon->CreateFactoryReset(properties.factoryReset);
    if (!factoryReset) {
        return Error{factoryReset.error()};
    }
    session.factoryReset = std::move(*factoryReset);
    return session;
}

std::istream& ReadLine(std::istream& in, std::string& line, bool interactive) {
    if (interactive) {
        std::cout << "knx> " << std::flush;
    }
    return std::getline(in, line);
}

// Runs commands until the input ends or a quit. A bad line ends a script with
// its exit code; at a terminal it is reported and the session goes on.
int RunCommands(Session& session, std::istream& in, const std::string& source, bool interactive) {
    ServiceObjects objects{*session.ipConfig, *session.factoryReset};
    std::string line;
    for (int number = 1; ReadLine(in, line, interactive); ++number) {
        const Words words = SplitCommandLine(line);
        if (words.empty()) {
            continue;
        }
        const Result<std::optional<std::string>> output = RunCommand(objects, words);
        if (!output) {
            std::cerr << kProgram << ": " << source << ":" << number << ": " << output.error()
                      << std::endl;
            if (!interactive) {
                return kBadInput;
            }
        } else if (!*output) {
            break;
        } else if (!(std::cout << **output << std::endl)) {
            return OutputFailed();
        }
    }
    return kOk;
}

// Each stage ends the run with its own exit code when it fails.
int Run(int argc, char** argv) {
    const Result<Options> options = ParseOptions(argc, argv);
    if (!options) {
        return Fail(kUsage, options.error());
    }
    if (options->help) {
        PrintUsage(std::cout);
        return kOk;
    }
    const Result<void> logging = ConfigureLogging(options->logConfig, options->logLevel);
    if (!logging) {
        return Fail(kUsage, logging.error());
    }
    Properties properties;
    if (!options->config.empty()) {
        Result<std::ifstream> config = OpenInput("config file", options->config);
        if (!config) {
            return Fail(kUsage, config.error());
        }
        Result<Properties> parsed = ParseProperties(*config, options->config);
        if (!parsed) {
            return Fail(kBadInput, parsed.error());
        }
        properties = std::move(*parsed);
    }
    std::ifstream script;
    if (!options->script.empty()) {
        Result<std::ifstream> opened = OpenInput("script", options->script);
        if (!opened) {
            return Fail(kUsage, opened.error());
        }
        script = std::move(*opened);
    }
    // Server mode holds SIGTERM and SIGINT back from before the add-on starts.
    std::optional<StopSignals> stop;
    if (options->serverEndpoint) {
        Result<StopSignals> blocked = StopSignals::Block();
        if (!blocked) {
            return Fail(kServerFailed, blocked.error());
        }
        stop.emplace(std::move(*blocked));
    }
    Result<Session> session = StartSession(options->addon, properties);
    if (!session) {
        return Fail(kAddonFailed, session.error());
    }
    if (stop) {
        const Result<void> served = ServeKnxNetIp(*session->ipConfig, properties.identity,
                                                  *options->serverEndpoint, *stop, std::cout);
        return served ? kOk : Fail(std::cout ? kServerFailed : kOutputFailed, served.error());
    }
    if (options->script.empty()) {
        return RunCommands(*session, std::cin, "<stdin>", isatty(STDIN_FILENO) != 0);
    }
    return RunCommands(*session, script, options->script, false);
}

} // namespace

int main(int argc, char** argv) {
    OpenClosedStandardDescriptors();
    log4cplus::Initializer logging;
    try {
        const int code = Run(argc, argv);
        return code == kOk && !std::cout.flush() ? OutputFailed() : code;
    } catch (const std::exception& error) {
        return Fail(kBadInput, std::string("unexpected error: ") + error.what());
    }
}
