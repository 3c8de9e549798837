#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>

#include "Backend.h"
#include "torq_sim/SimTorq.h"

namespace torqctl {

namespace {

class DeclaredHal : public Backend {
  public:
    std::string description() const override {
        return std::string("declared HAL ") + torq_sim::kTorqInstance;
    }
    bool simulated() const override { return false; }
    bool halUp() const override { return true; }
};

}  // namespace

std::unique_ptr<Backend> openDeclaredHal(std::string* error) {
    if (!AServiceManager_isDeclared(torq_sim::kTorqInstance)) {
        *error = std::string("no Torq HAL is declared (") + torq_sim::kTorqInstance + ")";
        return nullptr;
    }
    // The library would wait for a declared but stopped service forever: check first.
    ::ndk::SpAIBinder binder(AServiceManager_checkService(torq_sim::kTorqInstance));
    if (binder.get() == nullptr) {
        *error = std::string("the Torq HAL is declared but not running (") +
                 torq_sim::kTorqInstance + ")";
        return nullptr;
    }
    return std::make_unique<DeclaredHal>();
}

}  // namespace torqctl
