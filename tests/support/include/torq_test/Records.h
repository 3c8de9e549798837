#pragma once

// Builders of the records tests pass to and expect from the Torq HAL.

#include <aidl/vendor/quarn/hardware/torq/TorqRequestData.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace torq_test {

using ::aidl::vendor::quarn::hardware::torq::TorqRequestData;

/** A record naming a resource by opcode, with a value or none. */
inline TorqRequestData idRecord(int32_t id, std::optional<std::string> value = std::nullopt) {
    TorqRequestData d;
    d.id = id;
    d.value = std::move(value);
    return d;
}

/** A record naming a resource by path (or neither), with a value or none. */
inline TorqRequestData pathRecord(std::optional<std::string> path,
                                  std::optional<std::string> value) {
    TorqRequestData d;
    d.path = std::move(path);
    d.value = std::move(value);
    return d;
}

}  // namespace torq_test
