#pragma once

// Host-only control of the emulated binder world.
//
// On a host there is no binder driver, so every "process" lives in this one address space. Each
// binder object belongs to one emulated process; a binder handed to another process arrives there
// as a proxy and every transaction to it is marshalled, copied and run on a binder thread of the
// owning process. Code that is not running on a thread of some other emulated process (the main
// thread, gtest bodies, plain std::threads) belongs to the default process, kDefaultProcess.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace binder_host {

using ProcessId = int32_t;

// The process of main(), test bodies and every thread not started by the runtime.
constexpr ProcessId kDefaultProcess = 1;

// Creates a new emulated process with up to `maxBinderThreads` binder threads (started on demand).
ProcessId createProcess(const std::string& name, size_t maxBinderThreads = 8);

// The emulated process of the calling thread.
ProcessId currentProcess();

// Whether the calling thread is a binder thread (of any emulated process).
bool onBinderThread();

// The name given at creation ("default" for kDefaultProcess); empty for an unknown id.
std::string processName(ProcessId pid);

// Runs `fn` on a thread that belongs to `pid` and waits for it to return. Binder objects created
// by `fn` belong to `pid`. Returns false (and does not run `fn`) when the process is dead or unknown.
bool runInProcess(ProcessId pid, const std::function<void()>& fn);

// Kills an emulated process, as if it crashed: its binders become dead (pending and later
// transactions to them fail with STATUS_DEAD_OBJECT), every death recipient linked to them fires
// once on a binder thread of the linking process, its service registrations disappear and every
// reference it held on other processes' binders is dropped. Code still running on its threads
// finishes, but nothing it sends leaves the process. The default process cannot be killed.
void killProcess(ProcessId pid);

bool isAlive(ProcessId pid);

// The emulated device manifest, read by AServiceManager_isDeclared.
void declareInstance(const std::string& instance);
void undeclareInstance(const std::string& instance);

// Waits until no transaction, oneway call, reference drop or death notice is queued or running
// anywhere. Returns false if that did not happen within `timeoutMs`.
bool drain(int64_t timeoutMs = 5000);

// Back to a clean world for the next test: kills every process but the default one, drains,
// clears the manifest and the service registry.
void reset();

// Number of binder objects (local nodes) alive in `pid`, for leak checks.
size_t liveBinderCount(ProcessId pid);

}  // namespace binder_host
