#pragma once

// The service manager: a process-wide registry of named binder services.

#include <stdbool.h>

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

// Registers `binder` under `instance`. EX_NONE, or EX_ILLEGAL_ARGUMENT for null arguments.
__attribute__((warn_unused_result)) binder_exception_t AServiceManager_addService(
        AIBinder* binder, const char* instance);
// Returns one strong reference to the service, or null when it is not registered; never waits.
AIBinder* AServiceManager_checkService(const char* instance);
// Like checkService, but waits a little (about a second on the host) for the service to appear.
AIBinder* AServiceManager_getService(const char* instance);
// Waits until the service is registered and returns one strong reference to it.
AIBinder* AServiceManager_waitForService(const char* instance);
// Whether the device manifest declares the instance.
bool AServiceManager_isDeclared(const char* instance);
// Calls `callback` for every declared instance of `interface` (the part after the slash).
void AServiceManager_forEachDeclaredInstance(const char* interface, void* context,
                                             void (*callback)(const char*, void*));
// Registers a service that the platform may shut down when unused; here the same as addService.
binder_status_t AServiceManager_registerLazyService(AIBinder* binder, const char* instance);

#ifdef __cplusplus
}  // extern "C"
#endif
