// The load-time contract with the host: the interface version, and the registration of
// the instance manager around the host's use of the library.
#include "link/korvex_link.h"
#include "link/link.h"

using namespace korvex;

namespace {

// The table kept at TolvaneLibrary_initialize, for calls that come without one.
HostData keptHost = nullptr;

}  // namespace

HostData korvex::callbackTable(HostData host) { return host != nullptr ? host : keptHost; }

std::int32_t TolvaneLibrary_getVersion(void) noexcept { return kLinkInterfaceVersion; }

int TolvaneLibrary_initialize(HostData host) noexcept {
    return guardExport([&] {
        if (host == nullptr || host->registerInstanceManager == nullptr) return kLinkInternalError;
        keptHost = host;
        return host->registerInstanceManager(kInstanceManagerName, KorvexSolutionMap_manage);
    });
}

void TolvaneLibrary_uninitialize(HostData host) noexcept {
    guardExport([&] {
        host = callbackTable(host);
        if (host != nullptr && host->unregisterInstanceManager != nullptr) {
            host->unregisterInstanceManager(kInstanceManagerName);
        }
        keptHost = nullptr;
        return kLinkOk;
    });
}
