// SPDX-License-Identifier: Apache-2.0
//
// A job whose ranks are threads of one process and whose messages stay in memory.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "cluster/link.h"

namespace tavo_test {

// What the transports of a job share.
class Switchboard {
 public:
  explicit Switchboard(int size) : waiting_(static_cast<size_t>(size)) {}

  std::unique_ptr<Transport> transport(int rank);

  // All ranks are on one host. Before the first link.
  void put_on_one_host() { one_host_ = true; }

  // From now on every call of a transport fails; the process of a rank has ended.
  void cut();
  void end(int rank) { gone_ = rank; }

 private:
  friend class MemoryTransport;
  struct Part {
    int from = 0;
    Bytes bytes;
  };

  std::mutex lock_;
  std::condition_variable changed_;
  std::vector<std::deque<Part>> waiting_;  // by receiver
  const void* broadcast_ = nullptr;        // rank 0's bytes while the others take them
  size_t n_taken_ = 0;
  int n_broadcasts_ = 0;  // begun by rank 0
  bool cut_ = false;
  bool one_host_ = false;
  std::atomic<int> gone_{-1};
};

// Ranks 1 to size - 1 run `servant` on threads of their own; the test is rank 0. The job ends with the
// object.
class InProcessJob {
 public:
  InProcessJob(int size, const std::function<void(Link& link)>& servant, size_t largest_part = kLargestPart);
  ~InProcessJob();
  InProcessJob(const InProcessJob&) = delete;
  InProcessJob& operator=(const InProcessJob&) = delete;

  Link& link() { return *link_; }
  void cut() { board_.cut(); }

 private:
  Switchboard board_;
  std::unique_ptr<Link> link_;
  std::vector<std::thread> servants_;
};

}  // namespace tavo_test
