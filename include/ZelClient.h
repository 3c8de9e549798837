#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ZelClient {

// One performance resource: an opcode and the value to apply (or the value reported).
// A non-zero id always comes with a non-empty value; id 0 means "no id" and carries no value.
struct Resource {
    int32_t id = 0;
    std::optional<std::string> value;
};

}  // namespace ZelClient
