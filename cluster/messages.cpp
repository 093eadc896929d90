// SPDX-License-Identifier: Apache-2.0
#include "cluster/messages.h"

#include <algorithm>

#include "util/checksum.h"

namespace {

template <typename T>
void put_optional(ByteWriter& writer, const T* values, size_t n) {
  writer.put_all(values, values != nullptr ? n : 0);
}

// A list of n values, or none at all. *pointer: to it, or null.
template <typename T>
bool read_optional(ByteReader& reader, size_t n, std::vector<T>* values, const T** pointer) {
  *values = reader.get_all<T>();
  *pointer = values->empty() ? nullptr : values->data();
  return reader.ok() && (values->empty() || values->size() == n);
}

bool are_samples(const std::vector<int>& list, int n_samples) {
  return std::all_of(list.begin(), list.end(), [&](int sample) { return sample >= 0 && sample < n_samples; });
}

// The samples that are not in `tested`, in their order.
std::vector<int> rest_of(std::span<const int> samples, std::span<const int> tested, int n_samples) {
  std::vector<bool> out(static_cast<size_t>(n_samples), false);
  for (const int sample : tested) {
    out[static_cast<size_t>(sample)] = true;
  }
  std::vector<int> rest;
  for (const int sample : samples) {
    if (!out[static_cast<size_t>(sample)]) {
      rest.push_back(sample);
    }
  }
  return rest;
}

}  // namespace

ByteWriter message_of(MessageKind kind) {
  ByteWriter writer;
  writer.put(kind);
  return writer;
}

ByteWriter answer() {
  ByteWriter writer;
  writer.put_text("");
  return writer;
}

Bytes failed_answer(const Status& status) {
  ByteWriter writer;
  writer.put_text(status.message().empty() ? "failed" : status.message());
  return writer.take();
}

Bytes message_of(const RankConfig& config) {
  ByteWriter writer = message_of(MessageKind::kConfigure);
  writer.put_text(config.identity);
  writer.put_text(config.device);
  writer.put(config.workers);
  writer.put(config.silence_limit);
  return writer.take();
}

RankConfig read_config(ByteReader& reader) {
  RankConfig config;
  config.identity = reader.get_text();
  config.device = reader.get_text();
  config.workers = reader.get<int32_t>();
  config.silence_limit = reader.get<double>();
  return config;
}

size_t word_count(const Problem& problem) {
  const int rows = problem.transposed ? problem.n_snps : problem.n_samples;
  return static_cast<size_t>(rows) * static_cast<size_t>(problem.words_per_row);
}

Bytes message_of(const Problem& problem, const SharedInput& input) {
  const auto n = static_cast<size_t>(problem.n_samples);
  ByteWriter writer = message_of(MessageKind::kProblem);
  writer.put(problem.words_per_row);
  writer.put(static_cast<uint8_t>(problem.transposed));
  writer.put(problem.n_samples);
  writer.put(problem.n_snps);
  writer.put(problem.n_covariates);
  writer.put(static_cast<uint8_t>(problem.ordered_regression));
  put_optional(writer, problem.classes, n);
  put_optional(writer, problem.scores, n);
  put_optional(writer, problem.phenotypes, n);
  put_optional(writer, problem.covariates, n * static_cast<size_t>(problem.n_covariates));
  writer.put_text(input.path);
  writer.put(input.transposed);
  writer.put(input.regression);
  writer.put(static_cast<uint8_t>(input.has_lines));
  writer.put_all(input.left_out_lines.data(), input.left_out_lines.size());
  const bool reads = !input.path.empty();
  writer.put(reads ? checksum(problem.words, word_count(problem) * sizeof(uint32_t)) : uint32_t{0});
  return writer.take();
}

bool read_problem(ByteReader& reader, OwnedProblem* problem) {
  Problem& view = problem->view;
  view.words_per_row = reader.get<int64_t>();
  view.transposed = reader.get<uint8_t>() != 0;
  view.n_samples = reader.get<int>();
  view.n_snps = reader.get<int>();
  view.n_covariates = reader.get<int>();
  view.ordered_regression = reader.get<uint8_t>() != 0;
  if (!reader.ok() || view.n_samples < 0 || view.n_snps < 0 || view.words_per_row < 0 ||
      view.n_covariates < 0) {
    return false;
  }
  const auto n = static_cast<size_t>(view.n_samples);
  if (!read_optional(reader, n, &problem->classes, &view.classes) ||
      !read_optional(reader, n, &problem->scores, &view.scores) ||
      !read_optional(reader, n, &problem->phenotypes, &view.phenotypes) ||
      !read_optional(reader, n * static_cast<size_t>(view.n_covariates), &problem->covariates,
                     &view.covariates)) {
    return false;
  }
  SharedInput& input = problem->input;
  input.path = reader.get_text();
  input.transposed = reader.get<int32_t>();
  input.regression = reader.get<int32_t>();
  input.has_lines = reader.get<uint8_t>() != 0;
  input.left_out_lines = reader.get_all<uint8_t>();
  problem->checksum = reader.get<uint32_t>();
  return reader.at_end();
}

Bytes message_of(const WorkerSetupCommand& command, int n_samples) {
  ByteWriter writer = message_of(MessageKind::kSetup);
  writer.put(command.kind);
  writer.put(command.rules);
  writer.put(command.list_size);
  writer.put_all(command.samples);
  writer.put(static_cast<uint64_t>(command.folds.size()));
  for (const FoldView& fold : command.folds) {
    writer.put(fold.threshold);
    writer.put_all(fold.testing);
    // Most folds train on all samples of the list that they do not test.
    const std::vector<int> rest = rest_of(command.samples, fold.testing, n_samples);
    const bool is_rest = std::equal(rest.begin(), rest.end(), fold.training.begin(), fold.training.end());
    writer.put(static_cast<uint8_t>(is_rest));
    if (!is_rest) {
      writer.put_all(fold.training);
    }
  }
  const Problem* problem = command.problem;
  writer.put(static_cast<uint8_t>(problem != nullptr));
  if (problem != nullptr) {
    put_optional(writer, problem->classes, static_cast<size_t>(n_samples));
    put_optional(writer, problem->scores, static_cast<size_t>(n_samples));
  }
  return writer.take();
}

bool read_setup(ByteReader& reader, const Problem& problem, OwnedSetup* setup) {
  const int n = problem.n_samples;
  WorkerSetupCommand& command = setup->command;
  command.kind = reader.get<LoopKind>();
  command.rules = reader.get<ScoringRules>();
  command.list_size = reader.get<int>();
  setup->samples = reader.get_all<int>();
  const auto n_folds = reader.get<uint64_t>();
  if (!reader.ok() || !are_samples(setup->samples, n) ||
      (command.kind != LoopKind::kRecords && (command.kind != LoopKind::kSearch || command.list_size < 1))) {
    return false;
  }
  std::vector<float> thresholds;
  for (uint64_t f = 0; f < n_folds; ++f) {
    thresholds.push_back(reader.get<float>());
    std::vector<int> testing = reader.get_all<int>();
    const bool is_rest = reader.get<uint8_t>() != 0;
    if (!reader.ok() || !are_samples(testing, n)) {
      return false;
    }
    setup->lists.push_back(is_rest ? rest_of(setup->samples, testing, n) : reader.get_all<int>());
    if (!reader.ok() || !are_samples(setup->lists.back(), n)) {
      return false;
    }
    setup->lists.push_back(std::move(testing));
  }
  for (size_t f = 0; f < thresholds.size(); ++f) {
    setup->folds.push_back({setup->lists[2 * f], setup->lists[2 * f + 1], thresholds[f]});
  }
  command.folds = setup->folds;
  command.samples = setup->samples;
  if (reader.get<uint8_t>() != 0) {
    setup->problem = problem;
    const auto size = static_cast<size_t>(n);
    if (!read_optional(reader, size, &setup->classes, &setup->problem.classes) ||
        !read_optional(reader, size, &setup->scores, &setup->problem.scores)) {
      return false;
    }
    command.problem = &setup->problem;
  }
  return reader.at_end();
}

void put_fits(ByteWriter& writer, const ItemFit* fits, size_t n, int columns) {
  const auto width = static_cast<size_t>(columns);
  for (size_t i = 0; i < n; ++i) {
    const ItemFit& fit = fits[i];
    writer.put(fit.state);
    writer.put(static_cast<uint8_t>(fit.converged));
    writer.put(fit.iterations);
    writer.put(fit.rank);
    writer.put(fit.last_step);
    writer.put(fit.deviance);
    for (size_t j = 0; j < width; ++j) {
      writer.put(fit.coefficients[j]);
      writer.put(fit.standard_errors[j]);
    }
  }
}

bool read_fits(ByteReader& reader, ItemFit* fits, size_t n, int columns) {
  const auto width = static_cast<size_t>(columns);
  for (size_t i = 0; i < n; ++i) {
    ItemFit& fit = fits[i];
    fit.state = reader.get<FitState>();
    fit.converged = reader.get<uint8_t>() != 0;
    fit.iterations = reader.get<int>();
    fit.rank = reader.get<int>();
    fit.last_step = reader.get<double>();
    fit.deviance = reader.get<double>();
    for (size_t j = 0; j < width; ++j) {
      fit.coefficients[j] = reader.get<double>();
      fit.standard_errors[j] = reader.get<double>();
    }
  }
  return reader.at_end();
}
