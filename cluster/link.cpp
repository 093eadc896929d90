// SPDX-License-Identifier: Apache-2.0
#include "cluster/link.h"

#include <algorithm>
#include <utility>

#include "util/stop_signal.h"
#include "util/without_exceptions.h"

namespace {

// Between two looks of the thread: short after there was something, longer the longer there is nothing.
constexpr std::chrono::microseconds kShortestPause{20};
constexpr std::chrono::microseconds kLongestPause{1000};

// How often the thread looks whether the processes of this host are there.
constexpr std::chrono::milliseconds kWatch{10};

// Between two looks, so much counts as time spent looking.
constexpr std::chrono::milliseconds kLongestLook{100};

// How often a rank that waits without a limit looks up.
constexpr std::chrono::hours kLongestWait{1};

// Before a message go its bytes, without these.
constexpr size_t kFrame = sizeof(uint64_t);

}  // namespace

Link::Link(std::unique_ptr<Transport> transport, size_t largest_part)
    : transport_(std::move(transport)),
      largest_part_(largest_part),
      senders_(static_cast<size_t>(transport_->size())) {
  // The first rank of a host looks after the others there, and the second one after the first.
  for (int other = 0, local = 0; other < this->size() && local_rank() < 2; ++other) {
    if (host(other) == host(rank())) {
      const bool is_watched = local_rank() == 0 ? local > 0 : local == 0;
      if (is_watched) {
        watched_.push_back(other);
      }
      ++local;
    }
  }
  thread_ = std::thread([this] { run(); });
}

Link::~Link() {
  stop_thread();
}

std::string Link::name(int rank) const {
  return "rank " + std::to_string(rank) + " (" + transport_->host(rank) + ")";
}

void Link::send(int to, Bytes message) {
  const std::lock_guard guard(lock_);
  outgoing_.push_back({to, std::make_shared<const Bytes>(std::move(message))});
  to_do_.notify_one();
}

Status Link::receive(int from, double silence_limit, Bytes* message) {
  std::unique_lock guard(lock_);
  Sender& sender = senders_[static_cast<size_t>(from)];
  sender.heard = looked_for_;
  while (sender.messages.empty()) {
    Clock::time_point again;
    if (Status status = look_after(from, from + 1, silence_limit, &again); !status.ok()) {
      return status;
    }
    sender.changed.wait_until(guard, again);
  }
  *message = std::move(sender.messages.front());
  sender.messages.pop_front();
  return {};
}

Status Link::look_after(int first, int end, double silence_limit, Clock::time_point* again) {
  const auto give_up = [this](std::string why) {
    abandoned_ = true;
    return Status::failure(std::move(why));
  };
  if (failed_) {
    return give_up(tell_ ? "the job cannot go on" : "the job cannot go on: " + failure_);
  }
  if (stop_signal() != 0) {
    return give_up(stopped(stop_signal()).message());
  }
  const Clock::time_point now = Clock::now();
  *again = now + kLongestWait;
  if (silence_limit <= 0.0) {
    return {};
  }
  const auto limit = std::chrono::ceil<Clock::duration>(std::chrono::duration<double>(silence_limit));
  for (int rank = first; rank < end; ++rank) {
    const Clock::duration silence = looked_for_ - senders_[static_cast<size_t>(rank)].heard;
    if (silence >= limit) {
      const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(silence);
      return give_up(name(rank) + " has given no sign of life for " + std::to_string(seconds.count()) +
                     " seconds");
    }
    *again = std::min(*again, now + std::max<Clock::duration>(limit - silence, kLongestPause));
  }
  return {};
}

bool Link::is_abandoned() const {
  const std::lock_guard guard(lock_);
  return abandoned_ || failed_;
}

Status Link::broadcast(void* bytes, size_t size, double silence_limit) {
  std::unique_lock guard(lock_);
  broadcast_bytes_ = bytes;
  broadcast_size_ = size;
  broadcast_wanted_ = true;
  to_do_.notify_one();
  for (Sender& sender : senders_) {
    sender.heard = looked_for_;
  }
  while (broadcast_wanted_) {
    Clock::time_point again;
    // This rank, the first, is not among those to look after.
    Status status = look_after(1, this->size(), silence_limit, &again);
    if (!status.ok()) {
      failed_ = true;
      wake_all();
      broadcast_done_.wait(guard, [this] { return !broadcast_wanted_; });
      return status;
    }
    broadcast_done_.wait_until(guard, again);
  }
  // Over it is also when the transport has failed.
  Clock::time_point again;
  return failed_ ? look_after(1, this->size(), silence_limit, &again) : Status();
}

void Link::tell_failure(std::function<void(const std::string& failure)> tell) {
  std::string failure;
  {
    const std::lock_guard guard(lock_);
    tell_ = std::move(tell);
    if (!failed_) {
      return;
    }
    failure = failure_;
  }
  tell_(failure);
}

void Link::finish() {
  stop_thread();
  transport_->finish();
}

void Link::abort(int status) {
  {
    const std::lock_guard guard(lock_);
    failed_ = true;
    wake_all();
  }
  stop_thread();
  transport_->abort(status);
}

void Link::stop_thread() {
  {
    const std::lock_guard guard(lock_);
    ending_ = true;
    to_do_.notify_one();
  }
  if (thread_.joinable()) {
    thread_.join();
  }
}

void Link::run() {
  looked_at_ = Clock::now();
  // What cannot be carried, for want of memory, fails the job, and who waits for this thread is still
  // answered.
  const auto carry_on = [this] {
    return without_exceptions([this] {
      carry();
      return Status();
    });
  };
  for (Status status = carry_on(); !status.ok(); status = carry_on()) {
    fail(status.message());
  }
}

void Link::carry() {
  auto pause = kShortestPause;
  for (;;) {
    if (work()) {
      pause = kShortestPause;
      continue;
    }
    std::unique_lock guard(lock_);
    if (failed_ && broadcast_wanted_) {
      broadcast_wanted_ = false;
      broadcast_done_.notify_all();
    }
    if (ending_ && (failed_ || (outgoing_.empty() && sending_.empty()))) {
      return;
    }
    if (failed_) {
      to_do_.wait(guard, [this] { return ending_ || broadcast_wanted_; });
      continue;
    }
    const bool is_sharing = broadcast_ticket_ >= 0;
    to_do_.wait_for(guard, pause, [&] { return !outgoing_.empty() || (broadcast_wanted_ && !is_sharing); });
    // What is on its way goes on in the calls of this thread only.
    const bool is_moving = is_sharing || !sending_.empty() || !arriving_from_.empty();
    pause = is_moving ? kShortestPause : std::min(2 * pause, kLongestPause);
  }
}

bool Link::work() {
  {
    const std::lock_guard guard(lock_);
    if (failed_) {
      return false;
    }
    const Clock::time_point now = Clock::now();
    looked_for_ += std::min<Clock::duration>(now - looked_at_, kLongestLook);
    looked_at_ = now;
  }
  const bool sent = send_waiting();
  const bool left = check_sent();
  const bool came = take_arrived();
  const bool is_there = accept_arrived();
  const bool shared = go_on_with_broadcast();
  look_for_ends();
  look_for_stop();
  return sent || left || came || is_there || shared;
}

bool Link::send_waiting() {
  std::deque<Outgoing> waiting;
  {
    const std::lock_guard guard(lock_);
    waiting.swap(outgoing_);
  }
  for (const Outgoing& outgoing : waiting) {
    const Bytes& message = *outgoing.message;
    if (message.empty()) {
      start(outgoing.to, outgoing.message, nullptr, 0);
      continue;
    }
    ByteWriter frame;
    frame.put(static_cast<uint64_t>(message.size()));
    const auto framed = std::make_shared<const Bytes>(frame.take());
    start(outgoing.to, framed, framed->data(), framed->size());
    for (size_t at = 0; at < message.size(); at += largest_part_) {
      start(outgoing.to, outgoing.message, message.data() + at, std::min(largest_part_, message.size() - at));
    }
  }
  return !waiting.empty();
}

bool Link::start(int to, const std::shared_ptr<const Bytes>& message, const void* bytes, size_t size) {
  // Before it is sent: afterwards nothing may fail, since the transport reads the bytes.
  sending_.push_back({message, 0});
  if (!transport_->send(to, bytes, size, &sending_.back().ticket)) {
    sending_.pop_back();
    fail(transport_->error());
    return false;
  }
  return true;
}

bool Link::is_done(int ticket) {
  bool done = false;
  if (!transport_->is_done(ticket, &done)) {
    fail(transport_->error());
  }
  return done;
}

bool Link::check_sent() {
  return std::erase_if(sending_, [this](const Sending& part) { return is_done(part.ticket); }) > 0;
}

bool Link::take_arrived() {
  bool any = false;
  for (;;) {
    int from = -1;
    size_t size = 0;
    if (!transport_->look(&from, &size)) {
      fail(transport_->error());
      return any;
    }
    if (from < 0) {
      return any;
    }
    any = true;
    Sender& sender = senders_[static_cast<size_t>(from)];
    if (sender.arriving.empty()) {
      arriving_from_.push_back(from);
    }
    Arriving& part = sender.arriving.emplace_back();
    part.bytes.resize(size);
    if (!transport_->take(part.bytes.data(), &part.ticket)) {
      fail(transport_->error());
      return any;
    }
    const std::lock_guard guard(lock_);
    sender.heard = looked_for_;
  }
}

bool Link::accept_arrived() {
  bool any = false;
  std::erase_if(arriving_from_, [&](int from) {
    // In the order of their coming, also where a later one is there first.
    std::deque<Arriving>& parts = senders_[static_cast<size_t>(from)].arriving;
    while (!parts.empty() && is_done(parts.front().ticket)) {
      any = true;
      accept(from, std::move(parts.front().bytes));
      parts.pop_front();
    }
    return parts.empty();
  });
  return any;
}

void Link::accept(int from, Bytes part) {
  const std::lock_guard guard(lock_);
  Sender& sender = senders_[static_cast<size_t>(from)];
  sender.heard = looked_for_;
  if (sender.missing == 0) {
    if (part.size() == kFrame) {
      sender.missing = static_cast<size_t>(ByteReader(part).get<uint64_t>());
      sender.begun.clear();
    }
    return;
  }
  sender.missing -= std::min(sender.missing, part.size());
  if (sender.begun.empty()) {
    sender.begun = std::move(part);
  } else {
    sender.begun.insert(sender.begun.end(), part.begin(), part.end());
  }
  if (sender.missing == 0) {
    sender.messages.push_back(std::move(sender.begun));
    sender.begun = Bytes();
    sender.changed.notify_all();
  }
}

bool Link::go_on_with_broadcast() {
  {
    const std::lock_guard guard(lock_);
    if (!broadcast_wanted_ || failed_) {
      return false;
    }
  }
  if (broadcast_ticket_ >= 0) {
    if (!is_done(broadcast_ticket_)) {
      return false;
    }
    broadcast_ticket_ = -1;
  }
  if (broadcast_begun_ < broadcast_size_) {
    const size_t size = std::min(largest_part_, broadcast_size_ - broadcast_begun_);
    if (!transport_->broadcast(static_cast<uint8_t*>(broadcast_bytes_) + broadcast_begun_, size,
                               &broadcast_ticket_)) {
      fail(transport_->error());
      return false;
    }
    broadcast_begun_ += size;
    return true;
  }
  broadcast_begun_ = 0;
  const std::lock_guard guard(lock_);
  broadcast_wanted_ = false;
  broadcast_done_.notify_all();
  return true;
}

void Link::look_for_ends() {
  const Clock::time_point now = Clock::now();
  if (watched_.empty() || now - watched_at_ < kWatch) {
    return;
  }
  watched_at_ = now;
  {
    const std::lock_guard guard(lock_);
    if (ending_) {
      return;
    }
  }
  for (const int rank : watched_) {
    if (transport_->is_gone(rank)) {
      fail(name(rank) + " has ended before the job");
      return;
    }
  }
}

void Link::look_for_stop() {
  if (stop_signal() != 0 && !stop_told_) {
    stop_told_ = true;
    const std::lock_guard guard(lock_);
    wake_all();
  }
}

void Link::wake_all() {
  for (Sender& sender : senders_) {
    sender.changed.notify_all();
  }
  broadcast_done_.notify_all();
  to_do_.notify_one();
}

void Link::fail(std::string failure) {
  bool is_told = false;
  {
    const std::lock_guard guard(lock_);
    if (failed_) {
      return;
    }
    failed_ = true;
    failure_ = std::move(failure);
    is_told = tell_ != nullptr;
    wake_all();
  }
  // Neither changes any more.
  if (is_told) {
    tell_(failure_);
  }
}
