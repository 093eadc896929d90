// SPDX-License-Identifier: Apache-2.0
#include "cluster/servant.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <numeric>
#include <optional>
#include <thread>

#include "cluster/cluster_backend.h"
#include "cluster/delays.h"
#include "cluster/device_team.h"
#include "device/candidate_list.h"
#include "lib/cv_measures.h"
#include "util/checksum.h"
#include "util/without_exceptions.h"

namespace {

// A range or a list is cut into so many pieces per worker, of this many combinations or items at least.
constexpr uint64_t kPiecesPerWorker = 8;
constexpr uint64_t kSmallestPiece = 64;

// Signs of life within the limit of silence.
constexpr double kSignsPerLimit = 8.0;

// Tells rank 0 now and then that this rank is at work.
class SignsOfLife {
 public:
  explicit SignsOfLife(Link& link) : link_(link), thread_([this] { run(); }) {}
  ~SignsOfLife() {
    {
      const std::lock_guard guard(lock_);
      ending_ = true;
      changed_.notify_one();
    }
    thread_.join();
  }
  SignsOfLife(const SignsOfLife&) = delete;
  SignsOfLife& operator=(const SignsOfLife&) = delete;

  // limit: seconds; 0: no signs are wanted.
  void set_limit(double limit) {
    const std::lock_guard guard(lock_);
    pause_ = std::chrono::duration<double>(limit / kSignsPerLimit);
    changed_.notify_one();
  }
  void set_working(bool working) {
    const std::lock_guard guard(lock_);
    working_ = working;
    changed_.notify_one();
  }

 private:
  void run() {
    std::unique_lock guard(lock_);
    while (!ending_) {
      if (!working_ || pause_.count() <= 0.0) {
        changed_.wait(guard);
      } else if (changed_.wait_for(guard, pause_) == std::cv_status::timeout) {
        // For want of memory this one is left out.
        (void)without_exceptions([this] {
          link_.send_sign_of_life(0);
          return Status();
        }).ok();
      }
    }
  }

  Link& link_;
  std::mutex lock_;
  std::condition_variable changed_;
  std::chrono::duration<double> pause_{0.0};
  bool working_ = false;
  bool ending_ = false;
  std::thread thread_;
};

// Pieces of [0, n), handed to whoever asks.
class Pieces {
 public:
  Pieces(uint64_t n, size_t n_workers)
      : n_(n), size_(std::max(kSmallestPiece, n / (kPiecesPerWorker * n_workers))) {}

  // False when there is none left.
  bool next(uint64_t* first, uint64_t* count) {
    *first = next_.fetch_add(size_);
    *count = *first < n_ ? std::min(size_, n_ - *first) : 0;
    return *count > 0;
  }

 private:
  const uint64_t n_;
  const uint64_t size_;
  std::atomic<uint64_t> next_{0};
};

class Servant {
 public:
  Servant(Link& link, const ServantHooks& hooks) : link_(link), hooks_(hooks), signs_(link) {}

  Status run() {
    for (;;) {
      Bytes message;
      if (Status status = link_.receive(0, 0.0, &message); !status.ok()) {
        return status;
      }
      ByteReader reader(message);
      const auto kind = reader.get<MessageKind>();
      if (kind == MessageKind::kEnd) {
        link_.send(0, answer().take());
        return {};
      }
      random_delay();
      signs_.set_working(true);
      ByteWriter reply = answer();
      const Status status = without_exceptions([&] { return obey(kind, reader, reply); });
      signs_.set_working(false);
      random_delay();
      link_.send(0, status.ok() ? reply.take() : failed_answer(status));
    }
  }

 private:
  Status obey(MessageKind kind, ByteReader& reader, ByteWriter& reply) {
    if (kind == MessageKind::kConfigure) {
      return configure(reader, reply);
    }
    if (kind == MessageKind::kProblem) {
      return take_problem(reader);
    }
    if (kind == MessageKind::kGenotypes) {
      return take_genotypes();
    }
    if (!team_) {
      return Status::failure("there is no data yet");
    }
    switch (kind) {
      case MessageKind::kSetup:
        return set_up(reader);
      case MessageKind::kList:
        return evaluate(reader, reply);
      case MessageKind::kRange:
        return search(reader, reply);
      case MessageKind::kRelease:
        team_->release_all();
        setup_.reset();
        return {};
      case MessageKind::kRegressionSetup:
        return set_up_regression(reader);
      case MessageKind::kItems:
        return fit(reader, reply);
      default:
        return garbled();
    }
  }

  static Status garbled() { return Status::failure("got what is no command"); }

  Status configure(ByteReader& reader, ByteWriter& reply) {
    const RankConfig config = read_config(reader);
    if (!reader.at_end()) {
      return garbled();
    }
    if (config.identity != hooks_.identity) {
      return Status::failure("was started with other arguments than rank 0, or is another build");
    }
    signs_.set_limit(config.silence_limit);
    Status status;
    backend_ = hooks_.choose(config.device, &status);
    if (backend_ == nullptr) {
      return status;
    }
    const int devices = backend_->device_count();
    const int workers = config.workers > 0
                            ? config.workers
                            : workers_of_rank(link_.local_rank(), link_.local_size(), *backend_);
    ordinals_.clear();
    for (int g = 0; g < workers; ++g) {
      ordinals_.push_back(device_of_rank(g, link_.local_rank(), link_.local_size(), devices));
    }
    reply.put_text(backend_->name() + ", " + std::to_string(workers) + " worker" + (workers == 1 ? "" : "s") +
                   ", " + backend_->properties(ordinals_.front()).description);
    return {};
  }

  Status take_problem(ByteReader& reader) {
    team_.reset();
    problem_ = OwnedProblem();
    if (!read_problem(reader, &problem_)) {
      return garbled();
    }
    if (backend_ == nullptr) {
      return Status::failure("there is no device");
    }
    if (problem_.input.path.empty()) {
      problem_.words.resize(word_count(problem_.view));
    }
    return {};
  }

  Status take_genotypes() {
    if (Status status = problem_.input.path.empty() ? hear_words() : read_shared(); !status.ok()) {
      return status;
    }
    Problem& view = problem_.view;
    view.words = problem_.words.data();
    team_.emplace(*backend_, ordinals_);
    return team_->each([&](Device& device, size_t) {
      Status status = device.bind();
      if (status.ok()) {
        status = device.send_genotypes(view);
      }
      return status.ok() ? device.send_base_data(view) : status;
    });
  }

  Status hear_words() {
    constexpr double kNoLimit = 0.0;  // it is rank 0 that looks after the ranks
    return link_.broadcast(problem_.words.data(), problem_.words.size() * sizeof(uint32_t), kNoLimit);
  }

  Status read_shared() {
    const std::string& path = problem_.input.path;
    if (Status status = hooks_.read_words(problem_.input, &problem_.words); !status.ok()) {
      return status;
    }
    if (problem_.words.size() != word_count(problem_.view) ||
        checksum(problem_.words.data(), problem_.words.size() * sizeof(uint32_t)) != problem_.checksum) {
      return Status::failure(path + " holds other genotypes here than on rank 0");
    }
    return {};
  }

  Status set_up(ByteReader& reader) {
    setup_.emplace();
    if (!read_setup(reader, problem_.view, &*setup_)) {
      return garbled();
    }
    return team_->each([&](Device& device, size_t) { return device.set_up(setup_->command); });
  }

  // Whether each value names a SNP, and whole combinations are there.
  bool are_items(const std::vector<int>& snps, size_t order) const {
    return order > 0 && snps.size() % order == 0 && std::all_of(snps.begin(), snps.end(), [&](int snp) {
             return snp >= 0 && snp < problem_.view.n_snps;
           });
  }

  Status evaluate(ByteReader& reader, ByteWriter& reply) {
    const auto fold = static_cast<size_t>(reader.get<uint64_t>());
    const std::vector<int> combinations = reader.get_all<int>();
    if (!reader.at_end() || !setup_ || fold >= setup_->folds.size()) {
      return garbled();
    }
    const auto order = static_cast<size_t>(setup_->command.rules.order);
    if (!are_items(combinations, order)) {
      return garbled();
    }
    const size_t n = combinations.size() / order;
    std::vector<float> records(n * kRecordSize);
    Pieces pieces(n, team_->size());
    Status status = team_->each([&](Device& device, size_t) {
      WorkerBatchCommand command;
      command.fold = fold;
      Status piece;
      for (uint64_t first = 0, count = 0; piece.ok() && pieces.next(&first, &count);) {
        command.active = static_cast<uint32_t>(count);
        command.combinations = combinations.data() + first * order;
        command.results = records.data() + first * kRecordSize;
        piece = device.evaluate_list(command);
      }
      return piece;
    });
    reply.put_all(records.data(), records.size());
    return status;
  }

  // Every piece begins with the floors that all pieces before it have raised.
  Status search(ByteReader& reader, ByteWriter& reply) {
    const auto first_rank = reader.get<uint64_t>();
    const auto n_ranks = reader.get<uint64_t>();
    if (!setup_ || setup_->command.kind != LoopKind::kSearch) {
      return garbled();
    }
    std::vector<CandidateList> best;
    for (size_t f = 0; f < setup_->folds.size(); ++f) {
      SearchFloor floor;
      floor.value = reader.get<float>();
      floor.rank = reader.get<uint64_t>();
      best.emplace_back(static_cast<size_t>(setup_->command.list_size), floor);
    }
    if (!reader.at_end()) {
      return garbled();
    }
    std::mutex lock;
    Pieces pieces(n_ranks, team_->size());
    Status status = team_->each([&](Device& device, size_t) {
      std::vector<SearchFloor> floors(best.size());
      std::vector<SearchCandidate> candidates;
      WorkerBatchCommand command;
      command.floors = floors.data();
      command.candidates = &candidates;
      Status piece;
      for (uint64_t first = 0, count = 0; piece.ok() && pieces.next(&first, &count);) {
        {
          const std::lock_guard guard(lock);
          std::transform(best.begin(), best.end(), floors.begin(),
                         [](const CandidateList& list) { return list.floor(); });
        }
        command.first_rank = first_rank + first;
        command.n_ranks = count;
        piece = device.search_range(command);
        const std::lock_guard guard(lock);
        for (const SearchCandidate& candidate : candidates) {
          best[static_cast<size_t>(candidate.fold)].offer(candidate.rank, candidate.value);
        }
      }
      return piece;
    });
    std::vector<SearchCandidate> candidates;
    for (size_t f = 0; f < best.size(); ++f) {
      for (const RankedValue& entry : best[f].entries()) {
        candidates.push_back({entry.rank, static_cast<int>(f), entry.value});
      }
    }
    reply.put_all(candidates.data(), candidates.size());
    return status;
  }

  Status set_up_regression(ByteReader& reader) {
    RegressionSetupCommand command(reader.get<RegressionRules>());
    command.launch_size = reader.get<uint64_t>();
    if (!reader.at_end()) {
      return garbled();
    }
    regression_ = command.rules;
    return team_->each([&](Device& device, size_t) { return device.set_up_regression(command); });
  }

  Status fit(ByteReader& reader, ByteWriter& reply) {
    const std::vector<int> items = reader.get_all<int>();
    const auto order = static_cast<size_t>(regression_.order());
    if (!reader.at_end() || !are_items(items, order)) {
      return garbled();
    }
    const size_t n = items.size() / order;
    std::vector<ItemFit> fits(n);
    Pieces pieces(n, team_->size());
    Status status = team_->each([&](Device& device, size_t) {
      RegressionBatchCommand command;
      Status piece;
      for (uint64_t first = 0, count = 0; piece.ok() && pieces.next(&first, &count);) {
        command.active = static_cast<uint32_t>(count);
        command.items = items.data() + first * order;
        command.results = fits.data() + first;
        piece = device.fit_items(command);
      }
      return piece;
    });
    put_fits(reply, fits.data(), n, regression_.columns(problem_.view.n_covariates));
    return status;
  }

  Link& link_;
  const ServantHooks& hooks_;
  SignsOfLife signs_;
  Backend* backend_ = nullptr;
  std::vector<int> ordinals_;  // of the devices of this rank
  OwnedProblem problem_;
  std::optional<OwnedSetup> setup_;
  RegressionRules regression_;
  std::optional<DeviceTeam> team_;
};

}  // namespace

Status serve(Link& link, const ServantHooks& hooks) {
  return without_exceptions([&] { return Servant(link, hooks).run(); });
}
