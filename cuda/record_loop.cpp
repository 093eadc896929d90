// SPDX-License-Identifier: Apache-2.0
#include "cuda/record_loop.h"

#include <algorithm>
#include <vector>

#include "cuda/occupied_cells.h"

namespace {

// Tables up to this many cells are held whole; beyond, most cells are empty and only the occupied ones are
// kept.
constexpr int64_t kDenseCells = 4096;
// Records of a pass at most, so that the page-locked buffers stay at 32 MiB.
constexpr size_t kMostRecordsPerPass = (1 << 18) / kPassLanes;

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
      nct_(dense_ ? 2 * table_cells(*data.problem, rules) : 0),
      n_all_(fold.training.size() + fold.testing.size()),
      plan_(bytes_per_combination(), kMostRecordsPerPass) {
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

void RecordLoop::send(const int* combinations, Lane& lane) const {
  const size_t n = lane.n;
  const cudaStream_t stream = lane.stream.get();
  const auto order = static_cast<size_t>(rules_.order);
  lane.stat.reserve(n * kRecordSize, "records");
  lane.host_stat.reserve(n * kRecordSize, "records");
  upload<int>(lane.c_loc, {combinations + lane.first * order, n * order}, "combinations", stream);
  const size_t entries = dense_ ? static_cast<size_t>(nct_) : 2 * (n_all_ + 1);
  if (data_.with_scores()) {
    lane.score_sums.reserve(n * entries, "score sums");
  }
  if (!dense_) {
    lane.placed.reserve(n * n_all_, "samples by cell");
    lane.table_train.reserve(n * 2 * entries, "count tables");
    return;
  }
  lane.table_train.reserve(n * entries, "training count tables");
  lane.table_test.reserve(n * entries, "testing count tables");
  for (DeviceBuffer<int32_t>* counts : {&lane.case_train, &lane.control_train, &lane.case_test,
                                        &lane.control_test, &lane.n_train, &lane.n_test}) {
    counts->reserve(n, "class counts");
  }
  lane.th.reserve(n, "thresholds");
  if (!rules_.own_thresholds()) {
    upload<int32_t>(lane.n_train, {&n_training_, 1}, "class counts", stream);
    upload<int32_t>(lane.n_test, {&n_testing_, 1}, "class counts", stream);
    upload<float>(lane.th, {&threshold_, 1}, "thresholds", stream);
  }
}

CountArguments RecordLoop::count_arguments(const Lane& lane, bool training) const {
  CountArguments arguments{};
  arguments.active = static_cast<uint32_t>(lane.n);
  arguments.combinations = lane.c_loc.data();
  arguments.order = rules_.order;
  arguments.c_num = c_num_.data();
  arguments.genotypes = data_.matrix();
  arguments.response = data_.response();
  arguments.samples = data_.indices() + (training ? 0 : n_training_);
  arguments.n_samples = training ? n_training_ : n_testing_;
  arguments.nct = nct_;
  arguments.counted = 2 * rules_.counted_cells();
  arguments.cases = (training ? lane.case_train : lane.case_test).data();
  arguments.controls = (training ? lane.control_train : lane.control_test).data();
  arguments.table = (training ? lane.table_train : lane.table_test).data();
  if (data_.with_scores() && training) {
    arguments.SC = data_.gmdr.SC.data();
    arguments.score_sums = lane.score_sums.data();
  }
  return arguments;
}

void RecordLoop::run_tables(const Lane& lane) const {
  const cudaStream_t stream = lane.stream.get();
  const size_t entries = lane.n * static_cast<size_t>(nct_);
  clear(lane.table_train, entries, stream);
  clear(lane.table_test, entries, stream);
  for (const DeviceBuffer<int32_t>* counts :
       {&lane.case_train, &lane.control_train, &lane.case_test, &lane.control_test}) {
    clear(*counts, lane.n, stream);
  }
  if (data_.with_scores()) {
    clear(lane.score_sums, entries, stream);
  }
  if (!data_.problem->transposed) {
    const auto count = data_.with_scores() ? cuGmdrCount : cuMdrCount;
    count(count_arguments(lane, true), stream);
    count(count_arguments(lane, false), stream);
  }
  MeasureArguments measures{};
  measures.active = static_cast<uint32_t>(lane.n);
  measures.n_train = lane.n_train.data();
  measures.n_test = lane.n_test.data();
  measures.th = lane.th.data();
  measures.case_train = lane.case_train.data();
  measures.control_train = lane.control_train.data();
  measures.case_test = lane.case_test.data();
  measures.control_test = lane.control_test.data();
  measures.table_train = lane.table_train.data();
  measures.table_test = lane.table_test.data();
  measures.score_sums = lane.score_sums.data();
  measures.nct = nct_;
  measures.tie = rules_.tie;
  measures.missing = rules_.missing;
  measures.stat = lane.stat.data();
  if (rules_.own_thresholds()) {
    (data_.with_scores() ? cuGmdrCalcSV : cuMdrCalcSV)(measures, stream);
  }
  (data_.with_scores() ? cuGmdrCalc : cuMdrCalc)(measures, stream);
}

void RecordLoop::run_occupied(const Lane& lane) const {
  OccupiedRecordArguments arguments{};
  arguments.active = static_cast<uint32_t>(lane.n);
  arguments.combinations = lane.c_loc.data();
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
  arguments.stat = lane.stat.data();
  arguments.placed = lane.placed.data();
  arguments.tables = lane.table_train.data();
  arguments.score_sums = data_.with_scores() ? lane.score_sums.data() : nullptr;
  cuOccupiedRecords(arguments, lane.stream.get());
}

void RecordLoop::evaluate(const int* combinations, uint32_t active, float* results) {
  const auto start = [&](Lane& lane) {
    // All that is sent goes before the kernels: sending waits for what the lane has queued.
    send(combinations, lane);
    if (dense_) {
      run_tables(lane);
    } else {
      run_occupied(lane);
    }
    cuda_safe_call(cudaMemcpyAsync(lane.host_stat.data(), lane.stat.data(),
                                   lane.n * kRecordSize * sizeof(float), cudaMemcpyDeviceToHost,
                                   lane.stream.get()));
  };
  const auto finish = [&](const Lane& lane) {
    std::copy_n(lane.host_stat.data(), lane.n * kRecordSize, results + lane.first * kRecordSize);
  };
  run_passes(lanes_, plan_, active, start, finish);
}
