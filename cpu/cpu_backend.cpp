// SPDX-License-Identifier: Apache-2.0
#include "cpu/cpu_backend.h"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "cpu/bit_planes.h"
#include "cpu/cores.h"
#include "cpu/genotype_columns.h"
#include "cpu/item_fits.h"
#include "cpu/range_search.h"
#include "cpu/record_path.h"
#include "device/segments.h"
#include "util/stop_signal.h"

struct SearchData {
  // threads: that share the work of making it.
  SearchData(const Problem& problem, const WorkerSetupCommand& setup, InstructionSet set_, size_t threads)
      : set(set_), segments(problem, setup.folds) {
    if (problem.scores != nullptr && score_planes_fit(setup.rules)) {
      score_planes.emplace(problem, setup, segments);
    } else if (problem.scores != nullptr) {
      scores.emplace(problem, setup, segments);
    } else if (lane_search_fits(setup.rules, segments)) {
      lane_planes.emplace(problem, segments, threads);
      sample_rows = make_sample_rows(problem, setup, segments, *lane_planes, threads);
    } else if (setup.rules.order <= kMaxPlaneOrder) {
      planes.emplace(problem, segments);
    }
  }

  InstructionSet set;
  Segments segments;
  std::optional<LanePlanes> lane_planes;
  std::unique_ptr<const SampleRows> sample_rows;
  std::optional<BitPlanes> planes;
  std::optional<ScoreData> scores;
  std::optional<ScorePlanes> score_planes;

  std::unique_ptr<RangeSearch> make_search(const Problem& problem, const WorkerSetupCommand& setup) const {
    if (score_planes) {
      return make_score_plane_search(problem, setup, *score_planes, set);
    }
    if (scores) {
      return make_score_search(problem, setup, *scores);
    }
    if (lane_planes) {
      return make_lane_search(problem, setup, segments, *lane_planes, sample_rows.get(), set);
    }
    return planes ? make_plane_search(problem, setup, segments, *planes)
                  : make_cell_search(problem, setup, segments);
  }
};

namespace {

class CpuDevice : public Device {
 public:
  explicit CpuDevice(CpuBackend& backend) : backend_(backend) { backend_.count_open(1); }
  ~CpuDevice() override { backend_.count_open(-1); }
  CpuDevice(const CpuDevice&) = delete;
  CpuDevice& operator=(const CpuDevice&) = delete;

  Status bind() override { return {}; }

  Status send_genotypes(const Problem& problem) override {
    problem_ = &problem;
    columns_ = std::make_shared<GenotypeColumns>(problem);
    return {};
  }

  Status send_base_data(const Problem&) override { return {}; }

  Status set_up(const WorkerSetupCommand& command) override {
    order_ = command.rules.order;
    n_folds_ = command.folds.size();
    list_size_ = static_cast<size_t>(command.list_size);
    const Problem& problem = command.problem != nullptr ? *command.problem : *problem_;
    if (command.kind == LoopKind::kRecords) {
      for (const FoldView& fold : command.folds) {
        record_paths_.emplace_back(problem, command.rules, fold, columns_);
      }
      return {};
    }
    search_data_ = backend_.search_data(problem, command);
    search_ = search_data_->make_search(problem, command);
    return {};
  }

  Status evaluate_list(const WorkerBatchCommand& command) override {
    for (size_t i = 0; i < command.active && stop_signal() == 0; ++i) {
      record_paths_[command.fold].evaluate(command.combinations + i * static_cast<size_t>(order_),
                                           command.results + i * kRecordSize);
    }
    return {};
  }

  Status search_range(const WorkerBatchCommand& command) override {
    std::vector<CandidateList> lists;
    for (size_t f = 0; f < n_folds_; ++f) {
      lists.emplace_back(list_size_, command.floors[f]);
    }
    search_->run(command.first_rank, command.n_ranks, lists);
    command.candidates->clear();
    for (size_t f = 0; f < n_folds_; ++f) {
      for (const RankedValue& entry : lists[f].entries()) {
        command.candidates->push_back({entry.rank, static_cast<int>(f), entry.value});
      }
    }
    return {};
  }

  Status set_up_regression(const RegressionSetupCommand& command) override {
    order_ = command.rules.order();
    item_fits_ = make_item_fits(*problem_, command.rules, backend_.instruction_set());
    return {};
  }

  Status fit_items(const RegressionBatchCommand& command) override {
    item_fits_->run(command.items, command.active, command.results);
    return {};
  }

  void release() override {
    item_fits_.reset();
    record_paths_.clear();
    search_.reset();
    search_data_.reset();
  }

 private:
  CpuBackend& backend_;
  const Problem* problem_ = nullptr;
  int order_ = 0;
  size_t n_folds_ = 0;
  size_t list_size_ = 0;
  std::shared_ptr<GenotypeColumns> columns_;
  std::vector<RecordPath> record_paths_;  // [fold]
  std::shared_ptr<const SearchData> search_data_;
  std::unique_ptr<RangeSearch> search_;
  std::unique_ptr<ItemFits> item_fits_;
};

}  // namespace

CpuBackend::CpuBackend() : ready_(choose_instruction_set(&instruction_set_)) {}

Status CpuBackend::ready() const {
  return ready_;
}

int CpuBackend::device_count() const {
  return usable_cores();
}

int CpuBackend::devices_of_machine() const {
  return std::max(usable_cores(), static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
}

DeviceProperties CpuBackend::properties(int) const {
  // x86-64 has 16 general registers; a core's own second-level cache is what its threads share.
  return {name_of(instruction_set_), instruction_sets_here(), 16, second_level_cache()};
}

std::unique_ptr<Device> CpuBackend::open(int) {
  return std::make_unique<CpuDevice>(*this);
}

void CpuBackend::count_open(int more) {
  const std::lock_guard lock(lock_);
  n_open_ += more;
}

std::shared_ptr<const SearchData> CpuBackend::search_data(const Problem& problem,
                                                          const WorkerSetupCommand& setup) {
  const std::lock_guard lock(lock_);
  std::shared_ptr<const SearchData> data = search_data_.lock();
  if (data == nullptr) {
    data = std::make_shared<const SearchData>(problem, setup, instruction_set_,
                                              static_cast<size_t>(std::max(1, n_open_)));
    search_data_ = data;
  }
  return data;
}
