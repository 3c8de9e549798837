#pragma once

// The action wrapper layer: acquisition by action name, numbered notifications, and the builders
// that turn notification texts into resource lists for the flat API (zel.h).

#include <cstdint>
#include <string>
#include <vector>

#include "ZelClient.h"
#include "ZelExport.h"

// The named actions, in event-id order: the HAL's event id N is the action at index N. The order,
// the duplicates and the spellings are part of the interface. Built at load time, never modified.
ZEL_EXPORT extern std::vector<std::string> gActionList;

extern "C" {

// Acquires the action named by `eventId`, which must carry the "VARDEX_" prefix in front of the
// action name. Returns the HAL's handle, or -1 when the name is unknown.
ZEL_EXPORT int ZelEventAcquireWrapper(std::string eventId, std::string scene, std::string identity,
                                      int timeout);

// Releases a handle returned by ZelEventAcquireWrapper.
ZEL_EXPORT void ZelReleaseWapper(int handle);

// Turns notification `src` with sub-type `type`, parameter `param` and data text `data` into at most
// one rule-control call. `name` is only logged; the two unnamed integers are not read. Always 0.
ZEL_EXPORT int ZelNotifyWapper(std::string name, int src, int type, int param, int, int,
                               std::string data);

}  // extern "C"

// Opcode tables of the resource-list builders, indexed by position in the notification text.
// They lie back to back, so only the element alignment holds: the explicit alignment keeps
// compilers that give 16-byte arrays a 16-byte alignment (x86-64) from assuming more.
#define ZEL_OPCODE_TABLE_ALIGN __attribute__((aligned(alignof(uint32_t))))
ZEL_EXPORT extern uint32_t opCodeTargetLoad[3] ZEL_OPCODE_TABLE_ALIGN;
ZEL_EXPORT extern uint32_t opCodeAdpXpuCoreBoost[4] ZEL_OPCODE_TABLE_ALIGN;
ZEL_EXPORT extern uint32_t opCodeAdpXpuCoreLimit[4] ZEL_OPCODE_TABLE_ALIGN;
ZEL_EXPORT extern uint32_t opCodeAdpXpuFreqBoost[4] ZEL_OPCODE_TABLE_ALIGN;
ZEL_EXPORT extern uint32_t opCodeAdpXpuFreqLimit[4] ZEL_OPCODE_TABLE_ALIGN;

// A resource with this opcode and (always engaged) value.
ZEL_EXPORT ZelClient::Resource ZelResourceInfo(int opcode, std::string value);

// "a-10,b-20,c-30" (paired: the part after '-' is the value) or "10,20,30" (plain).
ZEL_EXPORT std::vector<ZelClient::Resource> getTargetLoadList(std::string list);

// "colocation:<value>" and "groupmigrate:<a>-<b>" items separated by ','.
ZEL_EXPORT std::vector<ZelClient::Resource> getColocationList(std::string list);

// Up to four ';'-separated groups (core boost, core limit, freq boost, freq limit) of
// ','-separated values. A group without a ',' is skipped.
ZEL_EXPORT std::vector<ZelClient::Resource> getGameAdpList(std::string list);

// Only `level` and `text` are read.
ZEL_EXPORT std::vector<ZelClient::Resource> getGameUpgradeList(int, int, int level, int, int,
                                                               std::string text);

// Sends the game-upgrade clearing list as rule `src` with status `type`.
ZEL_EXPORT void clrGameUpgradeMode(int src, int type);
