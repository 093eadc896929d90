// SPDX-License-Identifier: Apache-2.0
//
// The messages of one rank to and from the others, for any number of threads. One thread of its own makes the
// calls of the transport; it sleeps between looks, so that a rank that waits takes no processor.
#pragma once

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cluster/bytes.h"
#include "cluster/transport.h"
#include "util/status.h"

class Link {
 public:
  // largest_part: bytes of a message that go at once.
  explicit Link(std::unique_ptr<Transport> transport, size_t largest_part = kLargestPart);
  // Ends the thread. finish() or abort() come first, or the job ends without an agreement.
  ~Link();
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  int rank() const { return transport_->rank(); }
  int size() const { return transport_->size(); }
  int local_rank() const { return transport_->local_rank(); }
  int local_size() const { return transport_->local_size(); }
  std::string host(int rank) const { return transport_->host(rank); }
  // "rank 3 (node7)".
  std::string name(int rank) const;

  // Sends a message; returns at once.
  void send(int to, Bytes message);
  // Tells a rank that this one is there.
  void send_sign_of_life(int to) { send(to, {}); }

  // Waits for the next message from a rank. With a limit above 0, fails when the rank has neither sent
  // anything nor given a sign of life for so many seconds. Fails when a signal asks to stop, and when the
  // transport has failed. After a failure nobody knows what the rank is about: the job can only be aborted.
  Status receive(int from, double silence_limit, Bytes* message);

  // From now on a failure of the transport, and the end of a process of this host, go to `tell` at once, on
  // the link's thread, and not into the outcomes of the calls that fail for it; what has failed before, at
  // once. Called once, before anything is sent.
  void tell_failure(std::function<void(const std::string& failure)> tell);

  // Whether a message was given up.
  bool is_abandoned() const;

  // On every rank: rank 0's bytes become everyone's. With a limit above 0, every other rank has to give signs
  // of life; fails as receive does, and then nothing looks at the bytes any more.
  Status broadcast(void* bytes, size_t size, double silence_limit);

  // The end of the job for this rank.
  void finish();
  void abort(int status);

 private:
  using Clock = std::chrono::steady_clock;

  // A part of a message on its way.
  struct Sending {
    std::shared_ptr<const Bytes> message;
    int ticket = 0;
  };
  struct Outgoing {
    int to = 0;
    std::shared_ptr<const Bytes> message;
  };
  // A part that is on its way here.
  struct Arriving {
    Bytes bytes;
    int ticket = 0;
  };
  struct Sender {
    std::deque<Arriving> arriving;  // of the thread alone
    std::deque<Bytes> messages;     // that have come and are not received
    Bytes begun;                    // a message of which parts are to come
    size_t missing = 0;             // bytes of it
    Clock::duration heard{0};       // when something came of it, by looked_for_
    // For who waits for it: with one for all, each message would wake a thread for every rank.
    std::condition_variable changed;
  };

  void run();
  // Until the link ends, or nothing can be carried any more.
  void carry();
  // One look at all that there is to do; whether there was anything.
  bool work();
  bool send_waiting();
  bool start(int to, const std::shared_ptr<const Bytes>& message, const void* bytes, size_t size);
  bool check_sent();
  bool take_arrived();
  bool accept_arrived();
  void accept(int from, Bytes part);
  bool go_on_with_broadcast();
  bool is_done(int ticket);
  void look_for_ends();
  void look_for_stop();
  // With the lock held: why nothing is to be expected any more from the ranks [first, end), which abandons
  // the job. *again: when to ask next at the latest.
  Status look_after(int first, int end, double silence_limit, Clock::time_point* again);
  // Everyone looks again what there is; with the lock held.
  void wake_all();
  void fail(std::string failure);
  void stop_thread();

  std::unique_ptr<Transport> transport_;
  const size_t largest_part_;

  mutable std::mutex lock_;
  std::condition_variable to_do_;           // for the thread
  std::condition_variable broadcast_done_;  // for who waits for it
  std::deque<Outgoing> outgoing_;
  std::vector<Sender> senders_;  // [rank]
  void* broadcast_bytes_ = nullptr;
  size_t broadcast_size_ = 0;
  bool broadcast_wanted_ = false;
  // How long the thread has looked for messages. It stands still while this process does (a job that the
  // scheduler has suspended): nobody is silent then.
  Clock::duration looked_for_{0};
  bool failed_ = false;  // the thread calls the transport no more
  bool abandoned_ = false;
  bool ending_ = false;
  std::string failure_;
  std::function<void(const std::string&)> tell_;

  // Of the thread alone.
  std::vector<Sending> sending_;
  std::vector<int> arriving_from_;  // ranks with parts that are arriving
  size_t broadcast_begun_ = 0;      // bytes of the broadcast
  int broadcast_ticket_ = -1;       // of its latest part
  bool stop_told_ = false;
  Clock::time_point looked_at_;
  std::vector<int> watched_;  // ranks whose end is looked for
  Clock::time_point watched_at_;
  std::thread thread_;
};
