#pragma once

// Inside the library only (not exported).

#include <cstdint>
#include <vector>

#include "ZelClient.h"

// zelRuleCtl for a caller that built the list for this one call: the values move into the
// request instead of being copied. Logs, sends and returns exactly what zelRuleCtl does.
int32_t zelRuleCtlTaking(int32_t ruleId, int32_t status,
                         std::vector<ZelClient::Resource>&& resources);
