// Shared pieces of the fuzz targets: a check that stops the run on a broken
// property, quiet logging, and a device-stack client whose answers the target
// chooses.
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include "VelborDeviceStackClient.h"

#include <string>
#include <utility>

// Stops the run with a crash, so that libFuzzer keeps the input.
#define FUZZ_CHECK(condition) \
    do {                      \
        if (!(condition)) {   \
            __builtin_trap(); \
        }                     \
    } while (false)

// Sets up log4cplus with the root logger at OFF: no message is formatted.
void QuietLogging();

// Answers a configuration read with `config` and keeps the last command sent.
class ScriptedClient : public Velbor::IDeviceStackClient {
public:
    explicit ScriptedClient(std::string config = "", bool accepts = true)
        : m_config(std::move(config)), m_accepts(accepts) {}

    bool RequestCommand(const std::string& request, std::string& reply, int) override {
        lastRequest = request;
        reply = "{\"result\":\"ok\"}";
        return m_accepts;
    }
    bool RegisterApplication(const std::string&, const std::string&, const std::string&) override {
        return m_accepts;
    }
    bool GetDeviceConfig(std::string& config, int) override {
        config = m_config;
        return true;
    }

    std::string lastRequest;

private:
    std::string m_config;
    bool m_accepts;
};

#endif
