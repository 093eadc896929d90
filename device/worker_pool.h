// SPDX-License-Identifier: Apache-2.0
//
// The drivers' side of the worker protocol: starts the workers, gives commands, waits for the count-down.
#pragma once

#include <vector>

#include "device/backend.h"

class WorkerPool {
 public:
  // Starts g_cntDevCuda (>= 1) workers and waits until every one has its data. problem and backend outlive
  // the pool. One pool at a time. Look at status() before the first command.
  WorkerPool(Backend& backend, const Problem& problem);

  // Terminates the workers and waits for their threads.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  int size() const { return n_started_; }

  // Gives every worker the same command and waits.
  Status broadcast(const WorkerCommand& command);

  // Gives the first commands.size() (at most size()) workers one command each and waits.
  Status dispatch(const std::vector<WorkerBatchCommand>& commands);
  Status dispatch(const std::vector<RegressionBatchCommand>& commands);

  // The first failure of any worker, or of starting one, so far; or that a signal asks to stop. Every command
  // ends with it: here a run notices that it is to end early.
  Status status() const;

 private:
  template <typename Command>
  Status dispatch_all(const std::vector<Command>& commands);

  // Posts command_of(g) to the first n workers and waits until all have counted down.
  template <typename CommandOf>
  void post_and_wait(int n, CommandOf command_of);

  int n_started_ = 0;
  Status start_failure_;
  std::vector<Status> outcomes_;  // [worker], written by that worker between a command and its count-down
};
