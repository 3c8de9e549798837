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

}  // namespace torqctl
