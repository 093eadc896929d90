// SPDX-License-Identifier: Apache-2.0
//
// The backend of rank 0 in a job of several: the devices of its own, and behind them one for each other rank,
// which forwards what it is asked and waits for the answer.
#pragma once

#include <string>

#include "cluster/link.h"
#include "cluster/messages.h"
#include "device/backend.h"

// The device to open as number `worker` of a rank that is `local_rank` of local_size on its host: the ranks
// of a host deal the devices that they see among themselves.
int device_of_rank(int worker, int local_rank, int local_size, int device_count);

// Workers of such a rank when it is asked for no number: the devices that it sees where the launcher has
// given each rank its own, as far as that can be told, and its part of them otherwise.
int workers_of_rank(int local_rank, int local_size, const Backend& backend);

class ClusterBackend : public Backend {
 public:
  // local: the devices of this rank, of which a run uses n_local. silence_limit: see RankConfig. local and
  // link outlive it.
  ClusterBackend(Backend& local, Link& link, int n_local, double silence_limit)
      : local_(local), link_(link), n_local_(n_local), silence_limit_(silence_limit) {}

  // From now on the others read the genotypes themselves.
  void share_input(SharedInput input) { input_ = std::move(input); }

  std::string name() const override { return local_.name(); }
  Status ready() const override { return local_.ready(); }
  int device_count() const override { return local_.device_count(); }
  DeviceProperties properties(int ordinal) const override {
    return local_.properties(is_local(ordinal) ? local_ordinal(ordinal) : 0);
  }
  std::unique_ptr<Device> open(int ordinal) override;
  double range_seconds(int ordinal) const override;
  int workers_elsewhere() const override { return link_.size() - 1; }
  Status prepare(const Problem& problem) override;

 private:
  bool is_local(int ordinal) const { return ordinal < n_local_; }
  int local_ordinal(int ordinal) const;

  Backend& local_;
  Link& link_;
  const int n_local_;
  const double silence_limit_;
  SharedInput input_;
};
