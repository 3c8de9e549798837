#pragma once

// Stability markers. The emulation has one build, so every stability level is accepted alike.

#include <android/binder_ibinder.h>

#ifdef __cplusplus
extern "C" {
#endif

// The private flag of the partition this code is built for. Code generated for a stable
// interface ORs it into every transaction's flags; this library is vendor code, so it is the
// vendor flag, which AIBinder_transact accepts.
enum {
    FLAG_PRIVATE_LOCAL = FLAG_PRIVATE_VENDOR,
};

// Marks `binder` as usable within the vendor partition. A no-op on the host.
void AIBinder_markVendorStability(AIBinder* binder);
// Marks `binder` as usable within the system partition. A no-op on the host.
void AIBinder_markSystemStability(AIBinder* binder);
// Marks `binder` as part of a VINTF interface, usable across partitions (what the generated
// createBinder of a @VintfStability interface does). A no-op on the host.
void AIBinder_markVintfStability(AIBinder* binder);
// Marks `binder` as usable within the partition this code is built for. A no-op on the host.
void AIBinder_markCompilationUnitStability(AIBinder* binder);
// Lets a binder of a wider stability be used as a local one. A no-op on the host.
void AIBinder_forceDowngradeToLocalStability(AIBinder* binder);

#ifdef __cplusplus
}  // extern "C"
#endif
