// SPDX-License-Identifier: Apache-2.0
//
// A device that is another rank: rank 0's worker asks, waits, and takes the answer.
#pragma once

#include "cluster/link.h"
#include "cluster/messages.h"
#include "device/backend.h"

class RemoteDevice : public Device {
 public:
  // The link outlives the device. The rank was sent its problem and genotypes, or will be before
  // send_genotypes.
  RemoteDevice(Link& link, int rank, double silence_limit)
      : link_(link), rank_(rank), silence_limit_(silence_limit) {}

  Status bind() override { return {}; }
  // Waits until the rank has what it needs.
  Status send_genotypes(const Problem& problem) override;
  Status send_base_data(const Problem&) override { return {}; }
  Status set_up(const WorkerSetupCommand& command) override;
  Status evaluate_list(const WorkerBatchCommand& command) override;
  Status search_range(const WorkerBatchCommand& command) override;
  void release() override;
  Status set_up_regression(const RegressionSetupCommand& command) override;
  Status fit_items(const RegressionBatchCommand& command) override;

 private:
  // Sends a question and hands what follows the outcome of its answer to `take`, which returns false when
  // that cannot be one.
  template <typename Take>
  Status ask(Bytes question, Take take);

  Link& link_;
  const int rank_;
  const double silence_limit_;
  int n_samples_ = 0;
  int n_covariates_ = 0;
  size_t order_ = 0;
  size_t n_folds_ = 0;
  RegressionRules regression_;
};

// Waits for a rank's answer that is a text, or that says no more than how it went.
Status receive_text(Link& link, int rank, double silence_limit, std::string* text);
Status receive_outcome(Link& link, int rank, double silence_limit);
