// SPDX-License-Identifier: Apache-2.0
//
// The module that speaks MPI, and the only file that does.
#include <mpi.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

#include "cluster/transport.h"

namespace {

constexpr int kTag = 1;

// Seconds that all ranks have to begin, and to end, with this one. Then it is ended by a signal, and the job
// by the launcher.
constexpr unsigned kPatienceAtBegin = 600;
constexpr unsigned kPatienceAtEnd = 120;

// Where a rank runs. Process numbers mean the same where their numbering, a namespace of one running system,
// does.
struct Place {
  char host[MPI_MAX_PROCESSOR_NAME] = "";
  char system[40] = "";  // another one after each start of a machine
  pid_t process = 0;
  ino_t numbering = 0;
};

class MpiTransport : public Transport {
 public:
  // MPI is initialised.
  MpiTransport() {
    // What fails is to be said by rank 0, and not to end the process.
    MPI_Comm_set_errhandler(MPI_COMM_WORLD, MPI_ERRORS_RETURN);
    MPI_Comm_rank(MPI_COMM_WORLD, &rank_);
    MPI_Comm_size(MPI_COMM_WORLD, &size_);
    MPI_Comm on_host = MPI_COMM_NULL;
    MPI_Comm_split_type(MPI_COMM_WORLD, MPI_COMM_TYPE_SHARED, rank_, MPI_INFO_NULL, &on_host);
    MPI_Comm_rank(on_host, &local_rank_);
    MPI_Comm_size(on_host, &local_size_);
    MPI_Comm_free(&on_host);
    Place here;
    int length = 0;
    MPI_Get_processor_name(here.host, &length);
    here.process = getpid();
    struct stat numbering {};
    here.numbering = stat("/proc/self/ns/pid", &numbering) == 0 ? numbering.st_ino : 0;
    std::ifstream("/proc/sys/kernel/random/boot_id").getline(here.system, sizeof(here.system));
    places_.resize(static_cast<size_t>(size_));
    MPI_Allgather(&here, sizeof(Place), MPI_BYTE, places_.data(), sizeof(Place), MPI_BYTE, MPI_COMM_WORLD);
  }

  int rank() const override { return rank_; }
  int size() const override { return size_; }
  int local_rank() const override { return local_rank_; }
  int local_size() const override { return local_size_; }
  std::string host(int rank) const override { return places_[static_cast<size_t>(rank)].host; }

  bool is_gone(int rank) const override {
    const Place& there = places_[static_cast<size_t>(rank)];
    const Place& here = places_[static_cast<size_t>(rank_)];
    const bool is_known = std::strcmp(there.host, here.host) == 0 &&
                          std::strcmp(there.system, here.system) == 0 && there.numbering == here.numbering;
    return is_known && kill(there.process, 0) != 0 && errno == ESRCH;
  }

  bool send(int to, const void* bytes, size_t size, int* ticket) override {
    MPI_Request* request = new_request(ticket);
    return check(MPI_Isend(bytes, static_cast<int>(size), MPI_BYTE, to, kTag, MPI_COMM_WORLD, request));
  }

  bool look(int* from, size_t* size) override {
    *from = -1;
    int is_there = 0;
    MPI_Status status;
    if (!check(MPI_Improbe(MPI_ANY_SOURCE, kTag, MPI_COMM_WORLD, &is_there, &arrived_, &status))) {
      return false;
    }
    if (is_there != 0) {
      int count = 0;
      MPI_Get_count(&status, MPI_BYTE, &count);
      *from = status.MPI_SOURCE;
      *size = arrived_size_ = static_cast<size_t>(count);
    }
    return true;
  }

  bool take(void* bytes, int* ticket) override {
    MPI_Request* request = new_request(ticket);
    return check(MPI_Imrecv(bytes, static_cast<int>(arrived_size_), MPI_BYTE, &arrived_, request));
  }

  bool broadcast(void* bytes, size_t size, int* ticket) override {
    MPI_Request* request = new_request(ticket);
    return check(MPI_Ibcast(bytes, static_cast<int>(size), MPI_BYTE, 0, MPI_COMM_WORLD, request));
  }

  bool is_done(int ticket, bool* done) override {
    int is_over = 0;
    const bool ok = check(MPI_Test(&requests_[static_cast<size_t>(ticket)], &is_over, MPI_STATUS_IGNORE));
    *done = ok && is_over != 0;
    if (*done) {
      spent_.push_back(ticket);
    }
    return ok;
  }

  std::string error() const override { return error_; }

  // Waits for all ranks. One that has stopped before would hold up the others for ever.
  void finish() override {
    alarm(kPatienceAtEnd);
    MPI_Finalize();
    alarm(0);
  }
  void abort(int status) override { MPI_Abort(MPI_COMM_WORLD, status); }

 private:
  // Valid until the next one.
  MPI_Request* new_request(int* ticket) {
    if (spent_.empty()) {
      spent_.push_back(static_cast<int>(requests_.size()));
      requests_.push_back(MPI_REQUEST_NULL);
    }
    *ticket = spent_.back();
    spent_.pop_back();
    return &requests_[static_cast<size_t>(*ticket)];
  }

  bool check(int code) {
    if (code == MPI_SUCCESS) {
      return true;
    }
    char text[MPI_MAX_ERROR_STRING] = "";
    int length = 0;
    MPI_Error_string(code, text, &length);
    error_ = std::string("MPI: ") + text;
    return false;
  }

  int rank_ = 0;
  int size_ = 1;
  int local_rank_ = 0;
  int local_size_ = 1;
  std::vector<Place> places_;          // [rank]
  std::vector<MPI_Request> requests_;  // by ticket
  std::vector<int> spent_;             // tickets
  MPI_Message arrived_ = MPI_MESSAGE_NULL;
  size_t arrived_size_ = 0;
  std::string error_;
};

}  // namespace

// See OpenTransport.
extern "C" __attribute__((visibility("default"))) Transport* tavo_open_transport(char* reason,
                                                                                 size_t reason_size) {
  alarm(kPatienceAtBegin);
  int provided = MPI_THREAD_SINGLE;
  if (MPI_Init_thread(nullptr, nullptr, MPI_THREAD_SERIALIZED, &provided) != MPI_SUCCESS) {
    std::snprintf(reason, reason_size, "it does not start");
    alarm(0);
    return nullptr;
  }
  if (provided < MPI_THREAD_SERIALIZED) {
    std::snprintf(reason, reason_size, "it does not allow threads");
    MPI_Finalize();
    return nullptr;
  }
  auto* transport = new MpiTransport;
  alarm(0);
  return transport;
}
