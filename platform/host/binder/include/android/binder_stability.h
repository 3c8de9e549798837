#pragma once

// Stability markers. The emulation has one build, so every stability level is accepted alike.

#include <android/binder_ibinder.h>

#ifdef __cplusplus
extern "C" {
#endif

void AIBinder_markVendorStability(AIBinder* binder);
void AIBinder_markSystemStability(AIBinder* binder);
void AIBinder_markVintfStability(AIBinder* binder);
void AIBinder_markCompilationUnitStability(AIBinder* binder);
void AIBinder_forceDowngradeToLocalStability(AIBinder* binder);

#ifdef __cplusplus
}  // extern "C"
#endif
