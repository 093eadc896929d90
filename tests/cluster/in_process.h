// SPDX-License-Identifier: Apache-2.0
//
// A job whose ranks are threads of one process and whose messages stay in memory.
#pragma once

#include <atomic>
#include <chrono>
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

  // From now on every call of a transport fails; the process of a rank has ended; a rank has stopped in the
  // middle of whatever it sends or takes.
  void cut();
  void end(int rank) { gone_ = rank; }
  void stop(int rank) { stopped_ = rank; }
  // Rank 0 stands still so long, as a process that is suspended does.
  void suspend(std::chrono::milliseconds time) { suspended_ = time; }

 private:
  friend class MemoryTransport;
  struct Part {
    int from = 0;
    Bytes bytes;
  };

  std::mutex lock_;
  std::vector<std::deque<Part>> waiting_;  // by receiver
  std::vector<Bytes> broadcasts_;          // rank 0's, so far
  bool cut_ = false;
  bool one_host_ = false;
  std::atomic<int> gone_{-1};
  std::atomic<int> stopped_{-1};
  std::atomic<std::chrono::milliseconds> suspended_{std::chrono::milliseconds(0)};
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
  void stop(int rank) { board_.stop(rank); }
  void suspend(std::chrono::milliseconds time) { board_.suspend(time); }

 private:
  Switchboard board_;
  std::unique_ptr<Link> link_;
  std::vector<std::thread> servants_;
};

}  // namespace tavo_test
