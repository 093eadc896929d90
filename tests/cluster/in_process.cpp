// SPDX-License-Identifier: Apache-2.0
#include "tests/cluster/in_process.h"

#include <cstring>

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
    *ticket = 0;
    return !board_.cut_;
  }
  bool is_sent(int, bool* sent) override {
    *sent = true;
    return true;
  }
  bool look(int* from, size_t* size) override {
    const std::lock_guard guard(board_.lock_);
    const std::deque<Switchboard::Part>& waiting = board_.waiting_[static_cast<size_t>(rank_)];
    *from = waiting.empty() ? -1 : waiting.front().from;
    *size = waiting.empty() ? 0 : waiting.front().bytes.size();
    return !board_.cut_;
  }
  bool take(void* bytes) override {
    const std::lock_guard guard(board_.lock_);
    std::deque<Switchboard::Part>& waiting = board_.waiting_[static_cast<size_t>(rank_)];
    if (!waiting.front().bytes.empty()) {
      std::memcpy(bytes, waiting.front().bytes.data(), waiting.front().bytes.size());
    }
    waiting.pop_front();
    return true;
  }
  bool broadcast(void* bytes, size_t size) override {
    std::unique_lock guard(board_.lock_);
    ++n_broadcasts_;
    if (rank_ == 0) {
      board_.broadcast_ = bytes;
      board_.n_taken_ = 0;
      board_.n_broadcasts_ = n_broadcasts_;
      board_.changed_.notify_all();
      board_.changed_.wait(guard,
                           [this] { return board_.n_taken_ + 1 == board_.waiting_.size() || board_.cut_; });
    } else {
      board_.changed_.wait(guard, [this] { return board_.n_broadcasts_ == n_broadcasts_ || board_.cut_; });
      if (!board_.cut_ && size > 0) {
        std::memcpy(bytes, board_.broadcast_, size);
      }
      ++board_.n_taken_;
      board_.changed_.notify_all();
    }
    return !board_.cut_;
  }
  std::string error() const override { return "the line is cut"; }
  void finish() override {}
  void abort(int) override { board_.cut(); }

 private:
  Switchboard& board_;
  const int rank_;
  int n_broadcasts_ = 0;
};

std::unique_ptr<Transport> Switchboard::transport(int rank) {
  return std::make_unique<MemoryTransport>(*this, rank);
}

void Switchboard::cut() {
  const std::lock_guard guard(lock_);
  cut_ = true;
  changed_.notify_all();
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
  for (int rank = 1; rank < link_->size(); ++rank) {
    link_->send(rank, message_of(MessageKind::kEnd).take());
  }
  for (std::thread& servant : servants_) {
    servant.join();
  }
  link_->finish();
}

}  // namespace tavo_test
