// SPDX-License-Identifier: Apache-2.0
#include "cuda/record_loop.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "cuda/occupied_cells.h"

namespace {

// Tables up to this many cells are held whole; beyond, most cells are empty and only the occupied ones are
// kept.
constexpr int64_t kDenseCells = 4096;
// Records of a pass at most, so that its page-locked buffer stays at 32 MiB.
constexpr size_t kMostRecordsPerPass = 1 << 18;

// Without counted samples every cell is empty, and one stands for all.
int64_t table_cells(const Problem& problem, const ScoringRules& rules) {
  return problem.transposed ? 1 : rules.cells();
}

}  // namespace

RecordLoop::RecordLoop(DeviceData& data, const ScoringRules& rules, const FoldView& fold)
    : data_(data),
      rules_(rules),
      n_training_(static_cast<int>(fold.training.size())),
      n_testing_(static_cast<int>(fold.testing.size())),
      threshold_(fold.threshold),
      dense_(table_cells(*data.problem, rules) <= kDenseCells),
      nct_(2 * table_cells(*data.problem, rules)),
      n_all_(fold.training.size() + fold.testing.size()),
      most_per_pass_(std::clamp<size_t>(memory_budget() / bytes_per_combination(), 1, kMostRecordsPerPass)) {
  const cudaStream_t stream = data_.stream.get();
  if (data_.with_scores()) {
    cuGmdrSendIndices(data_.gmdr, fold.training, fold.testing, stream);
  } else {
    cuMdrSendIndices(data_.mdr, fold.training, fold.testing, stream);
  }
  if (dense_) {
    std::vector<int> c_num;
    for (int j = 0, weight = 2; j < rules_.order; ++j, weight *= rules_.base()) {
      c_num.push_back(weight);
    }
    upload<int>(c_num_, c_num, "multipliers", stream);
  }
}

size_t RecordLoop::bytes_per_combination() const {
  const size_t always = static_cast<size_t>(rules_.order) * sizeof(int) + kRecordSize * sizeof(float);
  const size_t sums = data_.with_scores() ? 1 : 0;
  if (dense_) {
    return always + static_cast<size_t>(nct_) * (2 + sums) * sizeof(int32_t) + 7 * sizeof(int32_t);
  }
  return always + n_all_ * sizeof(PlacedSample) + 2 * (n_all_ + 1) * (2 + sums) * sizeof(int32_t);
}

void RecordLoop::reserve(size_t n) {
  c_loc_.reserve(n * static_cast<size_t>(rules_.order), "combinations");
  stat_.reserve(n * kRecordSize, "records");
  host_stat_.reserve(n * kRecordSize, "records");
  const size_t entries = dense_ ? static_cast<size_t>(nct_) : 2 * (n_all_ + 1);
  if (data_.with_scores()) {
    score_sums_.reserve(n * entries, "score sums");
  }
  if (!dense_) {
    placed_.reserve(n * n_all_, "samples by cell");
    table_train_.reserve(n * 2 * entries, "count tables");
    return;
  }
  table_train_.reserve(n * entries, "training count tables");
  table_test_.reserve(n * entries, "testing count tables");
  for (DeviceBuffer<int32_t>* counts :
       {&case_train_, &control_train_, &case_test_, &control_test_, &n_train_, &n_test_}) {
    counts->reserve(n, "class counts");
  }
  th_.reserve(n, "thresholds");
}

CountArguments RecordLoop::count_arguments(uint32_t active, bool training) {
  CountArguments arguments{};
  arguments.active = active;
  arguments.combinations = c_loc_.data();
  arguments.order = rules_.order;
  arguments.c_num = c_num_.data();
  arguments.genotypes = data_.matrix();
  arguments.response = data_.response();
  arguments.samples = data_.indices() + (training ? 0 : n_training_);
  arguments.n_samples = training ? n_training_ : n_testing_;
  arguments.nct = nct_;
  arguments.counted = 2 * rules_.counted_cells();
  arguments.cases = (training ? case_train_ : case_test_).data();
  arguments.controls = (training ? control_train_ : control_test_).data();
  arguments.table = (training ? table_train_ : table_test_).data();
  if (data_.with_scores() && training) {
    arguments.SC = data_.gmdr.SC.data();
    arguments.score_sums = score_sums_.data();
  }
  return arguments;
}

void RecordLoop::run_tables(uint32_t active) {
  const cudaStream_t stream = data_.stream.get();
  const size_t entries = active * static_cast<size_t>(nct_);
  clear(table_train_, entries, stream);
  clear(table_test_, entries, stream);
  for (DeviceBuffer<int32_t>* counts : {&case_train_, &control_train_, &case_test_, &control_test_}) {
    clear(*counts, active, stream);
  }
  if (data_.with_scores()) {
    clear(score_sums_, entries, stream);
  }
  if (!data_.problem->transposed) {
    const auto count = data_.with_scores() ? cuGmdrCount : cuMdrCount;
    count(count_arguments(active, true), stream);
    count(count_arguments(active, false), stream);
  }
  MeasureArguments measures{};
  measures.active = active;
  measures.n_train = n_train_.data();
  measures.n_test = n_test_.data();
  measures.th = th_.data();
  measures.case_train = case_train_.data();
  measures.control_train = control_train_.data();
  measures.case_test = case_test_.data();
  measures.control_test = control_test_.data();
  measures.table_train = table_train_.data();
  measures.table_test = table_test_.data();
  measures.score_sums = score_sums_.data();
  measures.nct = nct_;
  measures.tie = rules_.tie;
  measures.missing = rules_.missing;
  measures.stat = stat_.data();
  if (rules_.own_thresholds()) {
    (data_.with_scores() ? cuGmdrCalcSV : cuMdrCalcSV)(measures, stream);
  } else {
    upload<int32_t>(n_train_, {&n_training_, 1}, "class counts", stream);
    upload<int32_t>(n_test_, {&n_testing_, 1}, "class counts", stream);
    upload<float>(th_, {&threshold_, 1}, "thresholds", stream);
  }
  (data_.with_scores() ? cuGmdrCalc : cuMdrCalc)(measures, stream);
}

void RecordLoop::run_occupied(uint32_t active) {
  OccupiedRecordArguments arguments{};
  arguments.active = active;
  arguments.combinations = c_loc_.data();
  arguments.order = rules_.order;
  arguments.base = rules_.base();
  arguments.cells = rules_.cells();
  arguments.genotypes = data_.matrix();
  arguments.response = data_.response();
  arguments.SC = data_.gmdr.SC.data();
  arguments.training = data_.indices();
  arguments.n_training = n_training_;
  arguments.testing = data_.indices() + n_training_;
  arguments.n_testing = n_testing_;
  arguments.threshold = threshold_;
  arguments.tie = rules_.tie;
  arguments.missing = rules_.missing;
  arguments.stat = stat_.data();
  arguments.placed = placed_.data();
  arguments.tables = table_train_.data();
  arguments.score_sums = data_.with_scores() ? score_sums_.data() : nullptr;
  cuOccupiedRecords(arguments, data_.stream.get());
}

void RecordLoop::evaluate(const int* combinations, uint32_t active, float* results) {
  const auto order = static_cast<size_t>(rules_.order);
  for (size_t done = 0; done < active;) {
    const size_t n = std::min<size_t>(active - done, most_per_pass_);
    reserve(n);
    upload<int>(c_loc_, {combinations + done * order, n * order}, "combinations", data_.stream.get());
    if (dense_) {
      run_tables(static_cast<uint32_t>(n));
    } else {
      run_occupied(static_cast<uint32_t>(n));
    }
    const size_t bytes = n * kRecordSize * sizeof(float);
    cuda_safe_call(
        cudaMemcpyAsync(host_stat_.data(), stat_.data(), bytes, cudaMemcpyDeviceToHost, data_.stream.get()));
    data_.stream.wait();
    std::memcpy(results + done * kRecordSize, host_stat_.data(), bytes);
    done += n;
  }
}
