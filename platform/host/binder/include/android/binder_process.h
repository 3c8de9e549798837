#pragma once

// Binder thread pool of the calling process.
//
// On the host, every emulated process starts binder threads on demand, up to its maximum, whether
// or not the thread pool was started; starting it is still accepted and recorded.

#include <stdbool.h>
#include <stdint.h>

#include <android/binder_status.h>

#ifdef __cplusplus
extern "C" {
#endif

void ABinderProcess_startThreadPool(void);
// Sets the maximum number of binder threads of the calling process (at least one is kept).
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);
bool ABinderProcess_isThreadPoolStarted(void);
// The calling thread serves transactions of its process until the process is shut down.
void ABinderProcess_joinThreadPool(void);

#ifdef __cplusplus
}  // extern "C"
#endif
