// SPDX-License-Identifier: Apache-2.0
#include "tests/cluster/in_process.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "cluster/messages.h"

namespace tavo_test {

class MemoryTransport : public Transport {
 public:
  MemoryTransport(Switchboard& board, int rank) : board_(board), rank_(rank) {}

  int rank() const override { return rank_; }
  int size() const override { return static_cast<int>(board_.waiting_.size()); }
  int local_rank() const override { return board_.one_host_ ? rank_ : 0; }
  int local_size() const override { return board_.one_host_ ? size() : 1; }
  std::string host(int rank) const override {
    return board_.one_host_ ? "host" : "host" + std::to_string(rank);
  }
  bool is_gone(int rank) const override { return rank == board_.gone_; }

  bool send(int to, const void* bytes, size_t size, int* ticket) override {
    const std::lock_guard guard(board_.lock_);
    const auto* first = static_cast<const uint8_t*>(bytes);
    board_.waiting_[static_cast<size_t>(to)].push_back(
        {rank_, size > 0 ? Bytes(first, first + size) : Bytes()});
    *ticket = begin([] { return true; });
    return !board_.cut_;
  }
  bool look(int* from, size_t* size) override {
    if (rank_ == 0) {
      std::this_thread::sleep_for(board_.suspended_.exchange(std::chrono::milliseconds(0)));
    }
    const std::lock_guard guard(board_.lock_);
    const std::deque<Switchboard::Part>& waiting = board_.waiting_[static_cast<size_t>(rank_)];
    *from = waiting.empty() ? -1 : waiting.front().from;
    *size = waiting.empty() ? 0 : waiting.front().bytes.size();
    return !board_.cut_;
  }
  bool take(void* bytes, int* ticket) override {
    const std::lock_guard guard(board_.lock_);
    std::deque<Switchboard::Part>& waiting = board_.waiting_[static_cast<size_t>(rank_)];
    const Switchboard::Part part = std::move(waiting.front());
    waiting.pop_front();
    *ticket = begin([this, bytes, part] {
      if (part.from == board_.stopped_) {
        return false;
      }
      if (!part.bytes.empty()) {
        std::memcpy(bytes, part.bytes.data(), part.bytes.size());
      }
      return true;
    });
    return true;
  }
  bool broadcast(void* bytes, size_t size, int* ticket) override {
    const std::lock_guard guard(board_.lock_);
    if (rank_ == 0) {
      const auto* first = static_cast<const uint8_t*>(bytes);
      board_.broadcasts_.emplace_back(first, first + size);
      *ticket = begin([this] { return board_.stopped_ < 0; });
    } else {
      *ticket = begin([this, bytes, number = n_broadcasts_++] {
        if (number >= board_.broadcasts_.size()) {
          return false;
        }
        const Bytes& theirs = board_.broadcasts_[number];
        std::copy(theirs.begin(), theirs.end(), static_cast<uint8_t*>(bytes));
        return true;
      });
    }
    return !board_.cut_;
  }
  bool is_done(int ticket, bool* done) override {
    const std::lock_guard guard(board_.lock_);
    const auto step = steps_.find(ticket);
    *done = step->second();
    if (*done) {
      steps_.erase(step);
    }
    return !board_.cut_;
  }
  std::string error() const override { return "the line is cut"; }
  void finish() override {}
  void abort(int) override { board_.cut(); }

 private:
  // What is_done asks, with the board's lock held: does it, if it can be done, and says whether.
  using Step = std::function<bool()>;

  int begin(Step step) {
    steps_.emplace(++n_tickets_, std::move(step));
    return n_tickets_;
  }

  Switchboard& board_;
  const int rank_;
  std::map<int, Step> steps_;  // by ticket
  int n_tickets_ = 0;
  size_t n_broadcasts_ = 0;
};

std::unique_ptr<Transport> Switchboard::transport(int rank) {
  return std::make_unique<MemoryTransport>(*this, rank);
}

void Switchboard::cut() {
  const std::lock_guard guard(lock_);
  cut_ = true;
}

InProcessJob::InProcessJob(int size, const std::function<void(Link& link)>& servant, size_t largest_part)
    : board_(size), link_(std::make_unique<Link>(board_.transport(0), largest_part)) {
  for (int rank = 1; rank < size; ++rank) {
    servants_.emplace_back([this, servant, rank, largest_part] {
      Link link(board_.transport(rank), largest_part);
      servant(link);
      link.finish();
    });
  }
}

InProcessJob::~InProcessJob() {
  if (link_->is_abandoned()) {
    cut();
  }
  for (int rank = 1; rank < link_->size(); ++rank) {
    link_->send(rank, message_of(MessageKind::kEnd).take());
  }
  for (std::thread& servant : servants_) {
    servant.join();
  }
  link_->finish();
}

}  // namespace tavo_test
