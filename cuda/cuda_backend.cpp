// SPDX-License-Identifier: Apache-2.0
#include "cuda/cuda_backend.h"

#include <cuda_runtime_api.h>

#include <cstdio>
#include <optional>

#include "cuda/cuda_check.h"
#include "cuda/device_data.h"
#include "cuda/fit_loop.h"
#include "cuda/range_loop.h"
#include "cuda/record_loop.h"

namespace {

// The oldest compute capability that the kernels are compiled for.
constexpr int kOldestMajor = 7;
constexpr int kOldestMinor = 5;

// The runtime's numbers of the GPUs that can run the kernels.
std::vector<int> usable_gpus() {
  int n = 0;
  if (cudaGetDeviceCount(&n) != cudaSuccess) {
    // No driver, or one that is too old: not an error of a program that can also run without.
    cudaGetLastError();
    return {};
  }
  std::vector<int> gpus;
  for (int i = 0; i < n; ++i) {
    int major = 0;
    int minor = 0;
    if (cudaDeviceGetAttribute(&major, cudaDevAttrComputeCapabilityMajor, i) == cudaSuccess &&
        cudaDeviceGetAttribute(&minor, cudaDevAttrComputeCapabilityMinor, i) == cudaSuccess &&
        (major > kOldestMajor || (major == kOldestMajor && minor >= kOldestMinor))) {
      gpus.push_back(i);
    }
  }
  return gpus;
}

// "NVIDIA H200, compute capability 9.0".
std::string describe(const cudaDeviceProp& gpu) {
  return std::string(gpu.name) + ", compute capability " + std::to_string(gpu.major) + "." +
         std::to_string(gpu.minor);
}

class CudaDevice : public Device {
 public:
  explicit CudaDevice(int gpu) : gpu_(gpu) {}

  Status bind() override {
    if (Status status = attempt([this] {
          cuda_safe_call(cudaSetDevice(gpu_));
          data_.stream.open();
          data_.gpu = traits();
        });
        !status.ok()) {
      return status;
    }
    return forced_search_kernel(data_.gpu, &data_.forced_search);
  }

  Status send_genotypes(const Problem& problem) override {
    return attempt([&] {
      started_with_ = &problem;
      data_.problem = &problem;
      if (!problem.transposed) {
        const auto words =
            static_cast<size_t>(problem.n_samples) * static_cast<size_t>(problem.words_per_row);
        upload<uint32_t>(data_.genotypes, {problem.words, words}, "genotypes", data_.stream.get());
      }
    });
  }

  Status send_base_data(const Problem& problem) override {
    return attempt([&] {
      const auto n = static_cast<size_t>(problem.n_samples);
      if (problem.phenotypes != nullptr) {
        const std::span<const float> covariates(problem.covariates,
                                                n * static_cast<size_t>(problem.n_covariates));
        const auto send = problem.ordered_regression ? cuRegOrderedSendBase : cuRegSendBase;
        send(data_.regression, {problem.phenotypes, n}, covariates, data_.stream.get());
      } else {
        send_classes(problem);
      }
    });
  }

  Status set_up(const WorkerSetupCommand& command) override {
    if (command.rules.order > kMaxCudaOrder) {
      return Status::failure("the CUDA backend takes orders up to " + std::to_string(kMaxCudaOrder));
    }
    return attempt([&] {
      take_classes(command.problem != nullptr ? *command.problem : *started_with_,
                   command.problem != nullptr);
      list_size_ = static_cast<size_t>(command.list_size);
      rules_ = command.rules;
      folds_.assign(command.folds.begin(), command.folds.end());
      if (command.kind == LoopKind::kRecords) {
        begin_records(0);
      } else {
        range_loop_.emplace(data_, command);
      }
    });
  }

  Status evaluate_list(const WorkerBatchCommand& command) override {
    return attempt([&] {
      if (command.fold != records_of_) {
        begin_records(command.fold);
      }
      record_loop_->evaluate(command.combinations, command.active, command.results);
    });
  }

  Status search_range(const WorkerBatchCommand& command) override {
    return attempt([&] {
      std::vector<CandidateList> lists;
      for (size_t f = 0; f < folds_.size(); ++f) {
        lists.emplace_back(list_size_, command.floors[f]);
      }
      range_loop_->run(command.first_rank, command.n_ranks, lists);
      command.candidates->clear();
      for (size_t f = 0; f < folds_.size(); ++f) {
        for (const RankedValue& entry : lists[f].entries()) {
          command.candidates->push_back({entry.rank, static_cast<int>(f), entry.value});
        }
      }
    });
  }

  Status set_up_regression(const RegressionSetupCommand& command) override {
    return attempt([&] { fit_loop_.emplace(data_, command.rules); });
  }

  Status fit_items(const RegressionBatchCommand& command) override {
    return attempt([&] { fit_loop_->fit(command.items, command.active, command.results); });
  }

  void release() override {
    record_loop_.reset();
    range_loop_.reset();
    fit_loop_.reset();
  }

 private:
  GpuTraits traits() const {
    const auto ask = [this](cudaDeviceAttr attribute) {
      int value = 0;
      cuda_safe_call(cudaDeviceGetAttribute(&value, attribute, gpu_));
      return value;
    };
    return {ask(cudaDevAttrComputeCapabilityMajor), ask(cudaDevAttrComputeCapabilityMinor),
            static_cast<size_t>(ask(cudaDevAttrMaxSharedMemoryPerBlockOptin))};
  }

  // Runs a step and names the GPU in its failure.
  template <typename Step>
  Status attempt(Step step) const {
    try {
      step();
    } catch (const CudaError& error) {
      return Status::failure("GPU " + std::to_string(gpu_) + ": " + error.what());
    }
    return {};
  }

  void begin_records(size_t fold) {
    record_loop_.reset();
    record_loop_.emplace(data_, rules_, folds_[fold]);
    records_of_ = fold;
  }

  // The classes and scores of this problem hold from now on. other: they may be others than they were, too,
  // when the problem is the same object.
  void take_classes(const Problem& problem, bool other) {
    if (other || data_.problem != &problem) {
      data_.problem = &problem;
      send_classes(problem);
    }
  }

  void send_classes(const Problem& problem) {
    const auto n = static_cast<size_t>(problem.n_samples);
    if (problem.scores != nullptr) {
      cuGmdrSendBase(data_.gmdr, {problem.classes, n}, {problem.scores, n}, data_.stream.get());
    } else {
      cuMdrSendBase(data_.mdr, {problem.classes, n}, data_.stream.get());
    }
  }

  const int gpu_;
  const Problem* started_with_ = nullptr;
  size_t list_size_ = 0;
  ScoringRules rules_;
  std::vector<FoldView> folds_;  // of the loop
  size_t records_of_ = 0;        // the fold that record_loop_ is of
  DeviceData data_;
  std::optional<RecordLoop> record_loop_;
  std::optional<RangeLoop> range_loop_;
  std::optional<FitLoop> fit_loop_;
};

}  // namespace

Status CudaBackend::ready() const {
  for (const int gpu : usable_gpus()) {
    cudaDeviceProp properties;
    if (cudaGetDeviceProperties(&properties, gpu) != cudaSuccess) {
      cudaGetLastError();
      std::puts("Cannot get device properties!");
      return Status::failure("GPU " + std::to_string(gpu) + " does not answer");
    }
  }
  return {};
}

int CudaBackend::device_count() const {
  return static_cast<int>(usable_gpus().size());
}

DeviceProperties CudaBackend::properties(int ordinal) const {
  const std::vector<int> gpus = usable_gpus();
  DeviceProperties result;
  for (size_t i = 0; i < gpus.size(); ++i) {
    cudaDeviceProp gpu;
    if (cudaGetDeviceProperties(&gpu, gpus[i]) != cudaSuccess) {
      cudaGetLastError();
      continue;
    }
    if (i == static_cast<size_t>(ordinal) % gpus.size()) {
      result.description = describe(gpu);
      result.registers_per_block = gpu.regsPerBlock;
      result.shared_memory_per_block = gpu.sharedMemPerBlock;
    }
    result.choices += (result.choices.empty() ? "" : "; ") + describe(gpu);
  }
  return result;
}

std::unique_ptr<Device> CudaBackend::open(int ordinal) {
  const std::vector<int> gpus = usable_gpus();
  return std::make_unique<CudaDevice>(gpus.empty() ? ordinal
                                                   : gpus[static_cast<size_t>(ordinal) % gpus.size()]);
}
