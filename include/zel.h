#pragma once

// The flat API: a second, independent connection to the Torq HAL, exported under plain names.

#include <cstdint>
#include <string>
#include <vector>

#include "ZelClient.h"
#include "ZelExport.h"

extern "C" {

// Connects (if needed) and calls ITorq::init(). 0 on success, -1 without a HAL, -2 when init fails.
ZEL_EXPORT int32_t zelInit();

// Event and resource acquisition; each returns the HAL's handle, or -1.
ZEL_EXPORT int32_t ZelEventAcquire(int32_t cmdId, const std::string& pkg,
                                   const std::string& identity, int32_t duration,
                                   const std::vector<ZelClient::Resource>& resources);
// `reserved` is never read; it keeps the exported signature.
ZEL_EXPORT int32_t ZelResAcquire(const std::vector<ZelClient::Resource>& resources,
                                 int64_t reserved, const std::string& identity, int32_t duration);
ZEL_EXPORT int32_t ZelPlatformResAcquire(const std::vector<ZelClient::Resource>& resources,
                                         int64_t reserved, const std::string& identity,
                                         const std::string& pkg, int32_t duration);
ZEL_EXPORT void ZelRelease(int32_t handle);

// Notifications, system info and rules; each returns the HAL's result, or -1.
ZEL_EXPORT int32_t ZelNotify(int32_t first, int32_t second, const std::vector<int32_t>& values);
ZEL_EXPORT int32_t setRelatedSysInfo(int32_t first, int64_t second);
ZEL_EXPORT int32_t zelRuleCtl(int32_t ruleId, int32_t status,
                              const std::vector<ZelClient::Resource>& resources);

// State, history and power-mode queries.
ZEL_EXPORT int32_t ZelMutiResStateRequest(std::vector<ZelClient::Resource>& resources);
ZEL_EXPORT void ZelResStateRequest(int32_t opcode, std::string& value);
ZEL_EXPORT int32_t ZelGetHistory(std::string& history);
// May throw std::bad_optional_access when the HAL answers without a value.
ZEL_EXPORT int32_t ZelGetPMStatus(int32_t mode);

}  // extern "C"
