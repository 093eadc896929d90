// SPDX-License-Identifier: Apache-2.0
//
// Worker threads: one per device, for the life of the run. A worker binds its device, sends it the data, then
// obeys one command at a time from its mailbox and counts down getCnt when it is done. Drivers use it through
// WorkerPool.
#pragma once

#include <pthread.h>

#include "device/backend.h"

// Process-wide state of the protocol. getCnt: workers that have not finished the current command; it and the
// mailboxes are guarded by g_gpuSync.
extern int g_cntDevCuda;  // number of workers
extern pthread_mutex_t g_gpuSync;
extern int getCnt;
extern int g_isCopied;                    // 1 while workers are running
extern pthread_t* g_pThrCuda;             // [g_cntDevCuda]
extern const WorkerCommand** g_pThrData;  // [g_cntDevCuda], null while a worker has no command
extern void** g_pThrResult;               // [g_cntDevCuda], where each worker's records land

// Start record of one worker, allocated by the starter and released by the worker.
struct CUDA_THREAD_DATA {
  int gpu = 0;  // device ordinal and index into the arrays above
  const Problem* problem = nullptr;
  Backend* backend = nullptr;
  Status* outcome = nullptr;  // [this worker] first failure; read by the driver after a wait
};

// The thread function; argument is a CUDA_THREAD_DATA*.
void* threadCudaMain(void* argument);
