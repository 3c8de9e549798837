// Device: only a declared HAL can serve torqctl (run vendor.quarn.hardware.torq-sim for the
// simulator).

#include "Backend.h"

namespace torqctl {

std::unique_ptr<Backend> openBackend(bool /*noSim*/, std::string* error) {
    std::unique_ptr<Backend> declared = openDeclaredHal(error);
    if (declared == nullptr) {
        *error += "; start the real HAL or vendor.quarn.hardware.torq-sim";
    }
    return declared;
}

}  // namespace torqctl
