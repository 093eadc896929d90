// SPDX-License-Identifier: Apache-2.0
//
// What carries bytes between the ranks of a job: MPI, or memory in tests. One thread at a time calls it.
#pragma once

#include <cstddef>
#include <string>

// Bytes that one part of a message, or one broadcast, has at most: what a slow network carries well within
// the time after which a rank counts as lost.
inline constexpr size_t kLargestPart = size_t{16} << 20;

class Transport {
 public:
  virtual ~Transport() = default;

  virtual int rank() const = 0;
  virtual int size() const = 0;
  // This rank among those of its host, from 0, and their number.
  virtual int local_rank() const = 0;
  virtual int local_size() const = 0;
  virtual std::string host(int rank) const = 0;
  // Whether the process of a rank of this host is no more. False for what cannot be known.
  virtual bool is_gone(int rank) const = 0;

  // The calls below wait for no other rank. They return false when they fail; then error() says why, and the
  // transport is of no more use but for abort. What they begin has a ticket, and its bytes are the
  // transport's until is_done says so of it.

  // Begins to send a part. Parts from one rank to another arrive in their order.
  virtual bool send(int to, const void* bytes, size_t size, int* ticket) = 0;
  // *from: the rank that a part comes from, which take() is for, or -1. *size: its bytes.
  virtual bool look(int* from, size_t* size) = 0;
  // Begins to receive the part.
  virtual bool take(void* bytes, int* ticket) = 0;
  // On every rank, in the same order: begins to make rank 0's bytes everyone's.
  virtual bool broadcast(void* bytes, size_t size, int* ticket) = 0;
  // *done: whether that is at its end. Once true, the ticket is spent; none is negative.
  virtual bool is_done(int ticket, bool* done) = 0;
  virtual std::string error() const = 0;

  // The end of the job for this rank: in agreement with all others, or for all at once with this status.
  // Where another does not agree within minutes, this process ends by a signal.
  virtual void finish() = 0;
  virtual void abort(int status) = 0;
};

// What the module that speaks MPI exports under this name. Joins the job that a launcher has started. Null on
// failure, with the reason in reason[reason_size].
using OpenTransport = Transport*(char* reason, size_t reason_size);
inline constexpr const char* kOpenTransport = "tavo_open_transport";
