#include "torq_sim/Catalog.h"

namespace torq_sim {

const std::vector<ResourceEntry>& resourceCatalog() {
    static const std::vector<ResourceEntry> kResources = {
            {0x01010010, "cpu.cluster0.min_freq",
             "/sys/devices/system/cpu/cpufreq/policy0/scaling_min_freq", "300000"},
            {0x01010020, "cpu.cluster1.min_freq",
             "/sys/devices/system/cpu/cpufreq/policy4/scaling_min_freq", "710400"},
            {0x01010030, "cpu.cluster2.min_freq",
             "/sys/devices/system/cpu/cpufreq/policy7/scaling_min_freq", "844800"},
            {0x010100A0, "cpu.cluster0.max_freq",
             "/sys/devices/system/cpu/cpufreq/policy0/scaling_max_freq", "2016000"},
            {0x010100B0, "cpu.cluster1.max_freq",
             "/sys/devices/system/cpu/cpufreq/policy4/scaling_max_freq", "2803200"},
            {0x010100C0, "cpu.cluster2.max_freq",
             "/sys/devices/system/cpu/cpufreq/policy7/scaling_max_freq", "3187200"},
            {0x01010B10, "cpu.cluster0.min_cores", "/sys/devices/system/cpu/cpu0/core_ctl/min_cpus",
             "4"},
            {0x01010B20, "cpu.cluster1.min_cores", "/sys/devices/system/cpu/cpu4/core_ctl/min_cpus",
             "0"},
            {0x01010B90, "cpu.cluster0.max_cores", "/sys/devices/system/cpu/cpu0/core_ctl/max_cpus",
             "4"},
            {0x01010BA0, "cpu.cluster1.max_cores", "/sys/devices/system/cpu/cpu4/core_ctl/max_cpus",
             "3"},
            {0x010108A0, "sched.cluster0.target_load", "/proc/sys/walt/cluster0/target_load", "80"},
            {0x010108B0, "sched.cluster1.target_load", "/proc/sys/walt/cluster1/target_load", "85"},
            {0x010108C0, "sched.cluster2.target_load", "/proc/sys/walt/cluster2/target_load", "90"},
            {0x01020050, "gpu.min_freq", "/sys/class/devfreq/gpu/min_freq", "220000000"},
            {0x01020060, "gpu.max_freq", "/sys/class/devfreq/gpu/max_freq", "900000000"},
            {0x010103A0, "display.idle_enable", nullptr, "1"},
            {0x01011040, "game.upgrade_level", nullptr, "0"},
            {0x01011070, "sched.colocation_level", nullptr, "0"},
    };
    return kResources;
}

const ResourceEntry* findResource(int32_t opcode) {
    for (const auto& entry : resourceCatalog()) {
        if (entry.opcode == opcode) return &entry;
    }
    return nullptr;
}

const ResourceEntry* findResourceByPath(const std::string& path) {
    for (const auto& entry : resourceCatalog()) {
        if (entry.path != nullptr && path == entry.path) return &entry;
    }
    return nullptr;
}

const std::vector<EventEntry>& eventCatalog() {
    static const std::vector<EventEntry> kEvents = {
            {0, "ACTION_LAUNCH", {{0x01010010, "1804800"}, {0x01010020, "2419200"}}},
            {1,
             "ACTION_COLD_LAUNCH",
             {{0x01010010, "2016000"}, {0x01010020, "2803200"}, {0x01020050, "600000000"}}},
            {5, "ACTION_WINDOW_ROTATION", {{0x01010020, "1689600"}}},
            {11,
             "ACTION_CAMERA_OPEN",
             {{0x01010020, "1958400"}, {0x01010B20, "2"}, {0x01020050, "500000000"}}},
            {37, "ACTION_TOUCH_BOOST", {{0x01010010, "1209600"}}},
            {42, "ACTION_ANIMATION", {{0x01020050, "400000000"}, {0x010108B0, "70"}}},
    };
    return kEvents;
}

const EventEntry* findEvent(int32_t eventId) {
    for (const auto& entry : eventCatalog()) {
        if (entry.eventId == eventId) return &entry;
    }
    return nullptr;
}

const std::vector<PowerModeEntry>& powerModes() {
    static const std::vector<PowerModeEntry> kModes = {
            {0, "normal"}, {1, "performance"}, {2, "powersave"}, {3, "game"}};
    return kModes;
}

const PowerModeEntry* findPowerMode(int32_t mode) {
    for (const auto& entry : powerModes()) {
        if (entry.mode == mode) return &entry;
    }
    return nullptr;
}

}  // namespace torq_sim
