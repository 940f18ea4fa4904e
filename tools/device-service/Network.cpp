#include "Network.h"

#include "InterfaceConfig.h"
#include "Log.h"
#include "NetworkSettings.h"
#include "ResolverFile.h"

namespace DeviceService {

namespace {

bool IsDhcp(const Settings& settings) {
    return settings.at("Dhcp") == "true";
}

std::string Join(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text.empty() ? "none" : text;
}

} // namespace

Network::Network(NetworkOptions options)
    : m_options(std::move(options)),
      m_client({m_options.interfaceName, m_options.dhcpDirectory, m_options.dhcpProgram}) {
}

Result<std::string> Network::Apply(const Settings& settings, Mode mode) {
    const std::optional<Settings> previous = m_settings;
    const bool wasDhcp = previous && IsDhcp(*previous);
    if (IsDhcp(settings) && wasDhcp && mode == Mode::Change) {
        m_settings = settings;
        return m_options.interfaceName + " stays with DHCP";
    }
    Result<void> written = WriteResolver(ReportedSettings(settings, std::nullopt));
    if (!written) {
        return Error{written.error()};
    }
    m_client.Stop(mode != Mode::Reboot);
    Result<std::string> applied =
        IsDhcp(settings) ? ApplyDhcp(mode) : ApplyStaticSettings(m_options.interfaceName, settings);
    if (applied) {
        m_settings = settings;
        return applied;
    }
    // Back to the previous configuration: its resolver file, and its DHCP
    // client (a failed static change leaves the old addresses in place).
    if (previous) {
        written = WriteResolver(Reported(*previous));
    }
    if (wasDhcp) {
        const Result<void> restarted = m_client.Start();
        if (!restarted) {
            Log(restarted.error());
        }
    }
    return applied;
}

Result<std::string> Network::ApplyDhcp(Mode mode) {
    const Result<void> removed = RemoveAddresses(m_options.interfaceName);
    const Result<void> started = removed ? m_client.Start() : removed;
    if (!started) {
        return Error{started.error()};
    }
    return m_options.interfaceName + (mode == Mode::Change ? " takes its address by DHCP"
                                                           : " takes its address by DHCP afresh");
}

Settings Network::Reported(const Settings& configured) const {
    return ReportedSettings(configured, m_client.CurrentLease());
}

void Network::Update() {
    if (!m_client.Update() || !m_settings || !IsDhcp(*m_settings)) {
        return;
    }
    const Settings reported = Reported(*m_settings);
    Log(m_options.interfaceName + " address " +
        (reported.at("IpAddress").empty()
             ? "none"
             : reported.at("IpAddress") + "/" + reported.at("SubnetMask")) +
        ", router " +
        (reported.at("DefaultGateway").empty() ? "none" : reported.at("DefaultGateway")));
    const Result<void> written = WriteResolver(reported);
    if (!written) {
        Log(written.error());
    }
}

Result<void> Network::WriteResolver(const Settings& reported) {
    const std::vector<std::string> servers = NameServers(reported);
    Result<void> written = ReplaceResolverFile(m_options.resolverPath, servers);
    if (written) {
        Log("DNS servers in " + m_options.resolverPath + ": " + Join(servers));
    }
    return written;
}

} // namespace DeviceService
