// An IP configuration manager in memory for the server's tests, the test
// server, the benchmark and the fuzz targets: plain values, and a record of
// every call that changes something, in order. Calls are serialised, as the
// server and a test thread may call it at the same time.
#ifndef KNXNETIP_FAKE_IP_CONFIG_H
#define KNXNETIP_FAKE_IP_CONFIG_H

#include "KnxStackAddonInterface.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <string>
#include <vector>

namespace KnxNetIp {

class FakeIpConfig : public KnxStack::IIpConfigurationManager {
public:
    struct Values {
        unsigned long current[3] = {0xC0A8010A, 0xFFFFFF00, 0xC0A80101}; // address, mask, gateway
        unsigned long configured[3] = {0xC0A8010A, 0xFFFFFF00, 0xC0A80101};
        unsigned long dns[2] = {0x08080808, 0x01010101};
        int methods = 4;
        unsigned short capabilities = 6;
        std::array<unsigned char, 6> mac = {0x00, 0x24, 0x6D, 0x01, 0x02, 0x03};
    };

    Values values() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values;
    }
    std::vector<std::string> calls() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_calls;
    }
    bool Init(const ConfigPropertyMap&) override { return true; }
    unsigned long GetCurrentIpAddress() override { return Get(m_values.current[0]); }
    unsigned long GetCurrentNetmask() override { return Get(m_values.current[1]); }
    unsigned long GetCurrentGateway() override { return Get(m_values.current[2]); }
    unsigned long GetConfiguredIpAddress() override { return Get(m_values.configured[0]); }
    unsigned long GetConfiguredNetmask() override { return Get(m_values.configured[1]); }
    unsigned long GetConfiguredGateway() override { return Get(m_values.configured[2]); }
    void SetConfiguredIpAddress(unsigned long v) override {
        Set("SetConfiguredIpAddress", m_values.configured[0], v);
    }
    void SetConfiguredNetmask(unsigned long v) override {
        Set("SetConfiguredNetmask", m_values.configured[1], v);
    }
    void SetConfiguredGateway(unsigned long v) override {
        Set("SetConfiguredGateway", m_values.configured[2], v);
    }
    void GetMacAddress(unsigned char* mac) override {
        std::lock_guard<std::mutex> lock(m_mutex);
        std::copy(m_values.mac.begin(), m_values.mac.end(), mac);
    }
    int GetIpAssignmentMethods() override { return Get(m_values.methods); }
    void SetIpAssignmentMethods(int v) override {
        Set("SetIpAssignmentMethods", m_values.methods, v);
    }
    unsigned short GetIpCapabilities() const override { return Get(m_values.capabilities); }
    // A commit makes the configured values the current ones, as a device would.
    void CommitConfiguration() override {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.emplace_back("CommitConfiguration");
        std::copy(std::begin(m_values.configured), std::end(m_values.configured), m_values.current);
    }
    unsigned long GetDNSAddress(unsigned int index) override {
        return index == 1 || index == 2 ? Get(m_values.dns[index - 1]) : 0;
    }
    void SetDNSAddress(unsigned int index, unsigned long v) override {
        if (index == 1 || index == 2) {
            Set("SetDNSAddress " + std::to_string(index), m_values.dns[index - 1], v);
        }
    }

private:
    template <typename T>
    T Get(const T& field) const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return field;
    }
    template <typename T>
    void Set(const std::string& call, T& field, T value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_calls.push_back(call + " " + std::to_string(value));
        field = value;
    }

    mutable std::mutex m_mutex;
    Values m_values;
    std::vector<std::string> m_calls;
};

} // namespace KnxNetIp

#endif
