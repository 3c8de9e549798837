#pragma once

// Shell command handler of a binder class.

#include <android/binder_ibinder.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef binder_status_t (*AIBinder_handleShellCommand)(AIBinder* binder, int in, int out, int err,
                                                       const char** argv, uint32_t argc);

void AIBinder_Class_setHandleShellCommand(AIBinder_Class* clazz,
                                          AIBinder_handleShellCommand handleShellCommand);

#ifdef __cplusplus
}  // extern "C"
#endif
