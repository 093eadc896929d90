// SPDX-License-Identifier: Apache-2.0
//
// What worker.cpp and worker_pool.cpp share of the protocol and nobody else sees.
#pragma once

#include <pthread.h>

// Locks g_gpuSync for the life of the object.
class WorkerLock {
 public:
  WorkerLock();
  ~WorkerLock();
  WorkerLock(const WorkerLock&) = delete;
  WorkerLock& operator=(const WorkerLock&) = delete;
};

extern pthread_cond_t g_command_posted;  // a mailbox was filled
extern pthread_cond_t g_counted_down;    // a worker has counted down
