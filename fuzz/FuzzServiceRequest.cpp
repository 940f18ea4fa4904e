// The device service's message parser on any body: no crash, and what it
// accepts is well-formed: a registration names its application, and every
// setting of a configuration change passes the service's own check.
#include "FuzzSupport.h"
#include "Request.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace DeviceService;
    const Result<Request> request = ParseRequest({reinterpret_cast<const char*>(data), size});
    if (!request) {
        FUZZ_CHECK(!request.error().empty());
    } else if (const auto* registration = std::get_if<RegisterRequest>(&*request)) {
        FUZZ_CHECK(!registration->name.empty());
    } else if (const auto* change = std::get_if<SetConfigRequest>(&*request)) {
        for (const auto& [key, value] : change->settings) {
            FUZZ_CHECK(CheckSetting(key, value));
        }
    }
    return 0;
}
