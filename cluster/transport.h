// SPDX-License-Identifier: Apache-2.0
//
// What carries bytes between the ranks of a job: MPI, or memory in tests. One thread at a time calls it.
#pragma once

#include <cstddef>
#include <string>

// Bytes that one part of a message, or one broadcast, has at most: MPI counts in int.
inline constexpr size_t kLargestPart = size_t{1} << 30;

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

  // The calls below return false when they fail; then error() says why, and the transport is of no more use
  // but for abort.

  // Begins to send a part; its bytes stay as they are until is_sent(*ticket). Parts from one rank to another
  // arrive in their order.
  virtual bool send(int to, const void* bytes, size_t size, int* ticket) = 0;
  // *sent: whether the part has left. Once true, the ticket is spent.
  virtual bool is_sent(int ticket, bool* sent) = 0;
  // *from: the rank that a part has come from, which take() is for, or -1. *size: its bytes.
  virtual bool look(int* from, size_t* size) = 0;
  virtual bool take(void* bytes) = 0;
  // On every rank: rank 0's bytes become everyone's.
  virtual bool broadcast(void* bytes, size_t size) = 0;
  virtual std::string error() const = 0;

  // The end of the job for this rank: in agreement with all others, or for all at once with this status.
  virtual void finish() = 0;
  virtual void abort(int status) = 0;
};

// What the module that speaks MPI exports under this name. Joins the job that a launcher has started. Null on
// failure, with the reason in reason[reason_size].
using OpenTransport = Transport*(char* reason, size_t reason_size);
inline constexpr const char* kOpenTransport = "tavo_open_transport";
