// SPDX-License-Identifier: Apache-2.0
#include "cluster/cluster_backend.h"

#include <algorithm>

#include "cluster/remote_device.h"

namespace {

// A range of another rank is cut into pieces there, and its answer goes through this rank: a second of work,
// and so much more in large jobs that rank 0 has two milliseconds for each answer.
constexpr double kRemoteSeconds = 1.0;
constexpr double kSecondsPerRank = 0.002;

}  // namespace

int device_of_rank(int worker, int local_rank, int local_size, int device_count) {
  return local_size > 1 && device_count > 0 ? (local_rank + worker * local_size) % device_count : worker;
}

int workers_of_rank(int local_rank, int local_size, const Backend& backend) {
  const int devices = backend.device_count();
  if (devices * local_size <= backend.devices_of_machine()) {
    return devices;
  }
  return std::max(1, (devices + local_size - 1 - local_rank) / local_size);
}

int ClusterBackend::local_ordinal(int ordinal) const {
  return device_of_rank(ordinal, link_.local_rank(), link_.local_size(), local_.device_count());
}

std::unique_ptr<Device> ClusterBackend::open(int ordinal) {
  if (is_local(ordinal)) {
    return local_.open(local_ordinal(ordinal));
  }
  return std::make_unique<RemoteDevice>(link_, ordinal - n_local_ + 1, silence_limit_);
}

double ClusterBackend::range_seconds(int ordinal) const {
  return is_local(ordinal) ? local_.range_seconds(ordinal)
                           : std::max(kRemoteSeconds, kSecondsPerRank * link_.size());
}

Status ClusterBackend::prepare(const Problem& problem) {
  const Bytes message = message_of(problem, input_);
  for (int rank = 1; rank < link_.size(); ++rank) {
    link_.send(rank, message);
  }
  // All take part in a broadcast, or none: it begins when every rank has room for the genotypes.
  Status failure;
  for (int rank = 1; rank < link_.size() && !link_.is_abandoned(); ++rank) {
    Status status = receive_outcome(link_, rank, silence_limit_);
    failure = failure.ok() ? status : failure;
  }
  if (!failure.ok()) {
    return failure;
  }
  for (int rank = 1; rank < link_.size(); ++rank) {
    link_.send(rank, message_of(MessageKind::kGenotypes).take());
  }
  if (!input_.path.empty()) {
    return {};
  }
  // Nobody but rank 0 writes there.
  return link_.broadcast(const_cast<uint32_t*>(problem.words), word_count(problem) * sizeof(uint32_t),
                         silence_limit_);
}
