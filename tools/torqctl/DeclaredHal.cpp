#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>

#include "Backend.h"
#include "torq_sim/SimTorq.h"

namespace torqctl {

std::unique_ptr<Backend> openDeclaredHal(std::string* error) {
    const std::string instance = torq_sim::kTorqInstance;
    if (!AServiceManager_isDeclared(instance.c_str())) {
        *error = "no Torq HAL is declared (" + instance + ")";
        return nullptr;
    }
    // The library would wait for a declared but stopped service forever: check first.
    ::ndk::SpAIBinder binder(AServiceManager_checkService(instance.c_str()));
    if (binder.get() == nullptr) {
        *error = "the Torq HAL is declared but not running (" + instance + ")";
        return nullptr;
    }
    return std::make_unique<Backend>();
}

#ifdef __ANDROID__
// A device has no embedded simulator: vendor.quarn.hardware.torq-sim is a declared HAL too.
std::unique_ptr<Backend> openBackend(bool /*noSim*/, std::string* error) {
    std::unique_ptr<Backend> declared = openDeclaredHal(error);
    if (declared == nullptr) *error += "; start the real HAL or vendor.quarn.hardware.torq-sim";
    return declared;
}
#endif

}  // namespace torqctl
