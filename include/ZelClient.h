#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ZelClient {

// One performance resource: an opcode and the value to apply (or the value reported).
// The torqHalclient requests insist that a non-zero id comes with a non-empty value and that id 0
// ("no id") carries none; resources read back from the HAL always have their value set.
struct Resource {
    int32_t id = 0;
    std::optional<std::string> value;
};

}  // namespace ZelClient
