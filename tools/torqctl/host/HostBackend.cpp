// HOST ONLY: the embedded simulator as torqctl's HAL.

#include <android/binder_manager.h>

#include "Backend.h"
#include "torq_sim/SimHost.h"

namespace torqctl {

namespace {

class SimBackend : public Backend {
  public:
    bool start() { return host_.start(); }

    std::string description() const override {
        return "reference simulator (emulated process " + std::to_string(host_.pid()) + ")";
    }
    bool simulated() const override { return true; }
    bool halUp() const override { return host_.alive(); }
    uint64_t journalMark() const override { return host_.journal()->mark(); }
    std::vector<torq_sim::JournalEntry> journalSince(uint64_t mark) const override {
        return host_.journal()->since(mark);
    }
    std::vector<std::string> takeDumpOutput() override { return host_.takeDumpOutput(); }
    bool killHal() override {
        if (!host_.alive()) return false;
        host_.kill();
        return true;
    }
    bool restartHal() override {
        host_.kill();  // restart-hal also replaces a running HAL
        return host_.restart();
    }
    void inspect(const std::function<void(const torq_sim::SimModel&)>& fn) const override {
        host_.inspect(fn);
    }

  private:
    torq_sim::SimHost host_;
};

}  // namespace

std::unique_ptr<Backend> openBackend(bool noSim, std::string* error) {
    if (noSim || AServiceManager_isDeclared(torq_sim::kTorqInstance)) {
        std::unique_ptr<Backend> declared = openDeclaredHal(error);
        if (declared == nullptr && noSim) *error += "; drop --no-sim to use the simulator";
        return declared;
    }
    auto sim = std::make_unique<SimBackend>();
    if (!sim->start()) {
        *error = kSimulatorFailed;
        return nullptr;
    }
    return sim;
}

}  // namespace torqctl
