// SPDX-License-Identifier: Apache-2.0
#include "cluster/remote_device.h"

#include <algorithm>

#include "cluster/delays.h"
#include "lib/cv_measures.h"

namespace {

// Receives an answer and hands what follows its outcome to `take`, which returns false when that cannot be
// one.
template <typename Take>
Status take_answer(Link& link, int rank, double silence_limit, Take take) {
  Bytes bytes;
  if (Status status = link.receive(rank, silence_limit, &bytes); !status.ok()) {
    return status;
  }
  random_delay();
  ByteReader reader(bytes);
  const std::string failure = reader.get_text();
  if (reader.ok() && !failure.empty()) {
    return Status::failure(link.name(rank) + ": " + failure);
  }
  if (!reader.ok() || !take(reader)) {
    return Status::failure(link.name(rank) + " has sent what is no answer");
  }
  return {};
}

bool nothing_more(const ByteReader& reader) {
  return reader.at_end();
}

}  // namespace

Status receive_text(Link& link, int rank, double silence_limit, std::string* text) {
  return take_answer(link, rank, silence_limit, [text](ByteReader& reader) {
    *text = reader.get_text();
    return reader.at_end();
  });
}

Status receive_outcome(Link& link, int rank, double silence_limit) {
  return take_answer(link, rank, silence_limit, nothing_more);
}

template <typename Take>
Status RemoteDevice::ask(Bytes question, Take take) {
  random_delay();
  link_.send(rank_, std::move(question));
  return take_answer(link_, rank_, silence_limit_, take);
}

Status RemoteDevice::send_genotypes(const Problem& problem) {
  n_samples_ = problem.n_samples;
  n_covariates_ = problem.n_covariates;
  return receive_outcome(link_, rank_, silence_limit_);
}

Status RemoteDevice::set_up(const WorkerSetupCommand& command) {
  order_ = static_cast<size_t>(command.rules.order);
  n_folds_ = command.folds.size();
  return ask(message_of(command, n_samples_), nothing_more);
}

Status RemoteDevice::evaluate_list(const WorkerBatchCommand& command) {
  ByteWriter question = message_of(MessageKind::kList);
  question.put(static_cast<uint64_t>(command.fold));
  question.put_all(command.combinations, command.active * order_);
  return ask(question.take(), [&](ByteReader& reader) {
    const std::vector<float> records = reader.get_all<float>();
    if (!reader.at_end() || records.size() != static_cast<size_t>(command.active) * kRecordSize) {
      return false;
    }
    std::copy(records.begin(), records.end(), command.results);
    return true;
  });
}

Status RemoteDevice::search_range(const WorkerBatchCommand& command) {
  ByteWriter question = message_of(MessageKind::kRange);
  question.put(command.first_rank);
  question.put(command.n_ranks);
  for (size_t f = 0; f < n_folds_; ++f) {
    question.put(command.floors[f].value);
    question.put(command.floors[f].rank);
  }
  return ask(question.take(), [&](ByteReader& reader) {
    *command.candidates = reader.get_all<SearchCandidate>();
    return reader.at_end() &&
           std::all_of(command.candidates->begin(), command.candidates->end(), [&](const auto& candidate) {
             return candidate.fold >= 0 && static_cast<size_t>(candidate.fold) < n_folds_ &&
                    candidate.rank - command.first_rank < command.n_ranks;
           });
  });
}

void RemoteDevice::release() {
  if (link_.is_abandoned()) {
    return;
  }
  // A failure shows at the next question.
  (void)ask(message_of(MessageKind::kRelease).take(), nothing_more).ok();
}

Status RemoteDevice::set_up_regression(const RegressionSetupCommand& command) {
  regression_ = command.rules;
  ByteWriter question = message_of(MessageKind::kRegressionSetup);
  question.put(command.rules);
  question.put(command.launch_size);
  return ask(question.take(), nothing_more);
}

Status RemoteDevice::fit_items(const RegressionBatchCommand& command) {
  ByteWriter question = message_of(MessageKind::kItems);
  question.put_all(command.items, command.active * static_cast<size_t>(regression_.order()));
  return ask(question.take(), [&](ByteReader& reader) {
    return read_fits(reader, command.results, command.active, regression_.columns(n_covariates_));
  });
}
