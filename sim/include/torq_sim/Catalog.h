#pragma once

// The fixed knowledge of the simulator: which resources it models (opcode, name, sysfs-like path
// and the value that holds when no request sets one), which event ids apply which resources, and
// the power modes it knows.

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace torq_sim {

struct ResourceEntry {
    int32_t opcode;
    const char* name;
    const char* path;          // nullptr: reachable by opcode only
    const char* defaultValue;  // the value in force while no request sets one
};

struct EventEntry {
    int32_t eventId;
    const char* name;
    std::vector<std::pair<int32_t, const char*>> settings;  // opcode, value
};

struct PowerModeEntry {
    int32_t mode;
    const char* name;
};

// Event ids are positions in the client's action table, which has 199 entries.
constexpr int32_t kEventIdCount = 199;

const std::vector<ResourceEntry>& resourceCatalog();
const ResourceEntry* findResource(int32_t opcode);
const ResourceEntry* findResourceByPath(const std::string& path);

// Only a few event ids apply resources; the other ids below kEventIdCount are accepted and
// apply nothing beyond the resources sent with them.
const std::vector<EventEntry>& eventCatalog();
const EventEntry* findEvent(int32_t eventId);

const std::vector<PowerModeEntry>& powerModes();
const PowerModeEntry* findPowerMode(int32_t mode);

}  // namespace torq_sim
