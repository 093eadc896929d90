// SPDX-License-Identifier: Apache-2.0
//
// Worker threads: one per device, for the life of the run. A worker binds its device, sends it the data, then
// obeys one command at a time from its mailbox and counts down getCnt when it is done. Drivers use it through
// WorkerPool.
#pragma once

#include <pthread.h>

#include "device/backend.h"

// Process-wide state of the protocol. getCnt: commands that have not been counted down; it and the mailboxes
// are guarded by g_gpuSync.
extern int g_cntDevCuda;  // number of workers that the run asks for
extern pthread_mutex_t g_gpuSync;
extern int getCnt;
extern int g_isCopied;                    // 1 while workers are running
extern pthread_t* g_pThrCuda;             // [workers]
extern const WorkerCommand** g_pThrData;  // [workers], null while a worker has no command
extern void** g_pThrResult;               // [workers], where each worker's records land

// Start record of one worker, allocated by the starter and released by the worker.
struct CUDA_THREAD_DATA {
  int gpu = 0;  // device ordinal and index into the arrays above
  const Problem* problem = nullptr;
  Backend* backend = nullptr;
  Status* outcome =
      nullptr;  // [this worker] first failure; read by the driver when the worker has counted down
  uint8_t* counted = nullptr;  // [this worker] 1 from a count-down on, guarded by g_gpuSync
};

// The thread function; argument is a CUDA_THREAD_DATA*.
void* threadCudaMain(void* argument);
