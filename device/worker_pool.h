// SPDX-License-Identifier: Apache-2.0
//
// The drivers' side of the worker protocol: starts the workers, gives commands, waits for the count-down.
#pragma once

#include <cstdint>
#include <vector>

#include "device/backend.h"

// Commands that come one after the other to whichever worker is free. All of it is called on the driver's
// thread.
class CommandStream {
 public:
  virtual ~CommandStream() = default;

  // The next command for this worker, which stays valid until it has been counted down; null when there is
  // none for now. Asked again whenever a worker has counted down.
  virtual const WorkerCommand* next(int worker) = 0;

  // The worker has done what it was given last.
  virtual void finished(int worker) = 0;

  // Does a piece of the work that can wait until the workers have their next commands. False when there is
  // none.
  virtual bool settle() { return false; }
};

class WorkerPool {
 public:
  // Starts g_cntDevCuda (>= 1) workers, and those that the backend has elsewhere, and waits until every one
  // has its data. problem and backend outlive the pool. One pool at a time. Look at status() before the first
  // command.
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

  // Gives every worker commands of the stream, the next as soon as it has counted down, until there are none
  // and all have counted down. After a failure, or when a signal asks to stop, no more are given, and what
  // the failing worker, or any after the signal, was given does not count as finished. Work is settled even
  // so.
  Status stream(CommandStream& commands);

  // See Backend::range_seconds.
  double range_seconds(int worker) const { return backend_.range_seconds(worker); }

  // The first failure of any worker, or of starting one, so far; or that a signal asks to stop. Every command
  // ends with it: here a run notices that it is to end early.
  Status status() const;

 private:
  void start_workers(const Problem& problem, int n_wanted);
  // Terminates those that have started, and waits for their threads.
  void end_workers();

  template <typename Command>
  Status dispatch_all(const std::vector<Command>& commands);

  // Posts command_of(g) to the first n workers and waits until all have counted down.
  template <typename CommandOf>
  void post_and_wait(int n, CommandOf command_of);

  // Asks the stream for a command for every worker that has none and posts it.
  void give(CommandStream& commands);

  Backend& backend_;
  int n_started_ = 0;
  Status start_failure_;
  std::vector<Status> outcomes_;  // [worker], written by that worker between a command and its count-down
  std::vector<uint8_t> counted_;  // [worker], see CUDA_THREAD_DATA
  std::vector<uint8_t> busy_;     // [worker], with a command of a stream
};
