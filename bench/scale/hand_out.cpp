// SPDX-License-Identifier: Apache-2.0
//
// Two ways to hand out ranges, by MPI: rank 0 answers requests, or every rank moves a counter in rank 0's
// memory by one-sided access. And what bytes cost on their way from rank 0 to all. Run by mpirun; rank 0
// prints medians of rounds in turn.
#include <mpi.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <thread>
#include <vector>

#include "bench/scale/processor_time.h"
#include "cluster/transport.h"

namespace {

constexpr int kRounds = 9;
constexpr int kPerRank = 2000;  // hand-outs of each rank in a round
constexpr int kTag = 1;
constexpr size_t kQuestion = 192;  // bytes of a range with the floors of ten folds
constexpr size_t kAnswer = 1616;   // bytes of an answer with ten candidates of each of ten folds
constexpr size_t kBroadcast = 4 * kLargestPart;

struct Times {
  double wall = 0.0;       // seconds
  double processor = 0.0;  // of rank 0, seconds
};

template <typename Step>
Times time_of(Step step) {
  MPI_Barrier(MPI_COMM_WORLD);
  const double wall = MPI_Wtime();
  const double processor = processor_seconds();
  step();
  MPI_Barrier(MPI_COMM_WORLD);
  return {MPI_Wtime() - wall, processor_seconds() - processor};
}

// Ranks above 0 send an answer, which asks for the next range, and get it.
void on_request(int rank, int size) {
  std::array<char, kAnswer> answer{};
  std::array<char, kQuestion> question{};
  if (rank != 0) {
    for (int i = 0; i < kPerRank; ++i) {
      MPI_Send(answer.data(), kAnswer, MPI_BYTE, 0, kTag, MPI_COMM_WORLD);
      MPI_Recv(question.data(), kQuestion, MPI_BYTE, 0, kTag, MPI_COMM_WORLD, MPI_STATUS_IGNORE);
    }
    return;
  }
  for (int i = 0; i < kPerRank * (size - 1); ++i) {
    MPI_Status status;
    MPI_Recv(answer.data(), kAnswer, MPI_BYTE, MPI_ANY_SOURCE, kTag, MPI_COMM_WORLD, &status);
    MPI_Send(question.data(), kQuestion, MPI_BYTE, status.MPI_SOURCE, kTag, MPI_COMM_WORLD);
  }
}

// Ranks above 0 fetch the next range by themselves.
void by_counter(int rank, MPI_Win window) {
  if (rank == 0) {
    return;
  }
  for (int i = 0; i < kPerRank; ++i) {
    const int64_t step = 1;
    int64_t before = 0;
    MPI_Fetch_and_op(&step, &before, MPI_INT64_T, 0, 0, MPI_SUM, window);
    MPI_Win_flush(0, window);
  }
}

// In parts, as a link does it: looking now and then whether a part has arrived.
void share(std::vector<char>& bytes) {
  constexpr std::chrono::microseconds kPause{20};
  for (size_t at = 0; at < bytes.size(); at += kLargestPart) {
    MPI_Request part = MPI_REQUEST_NULL;
    MPI_Ibcast(bytes.data() + at, static_cast<int>(std::min(kLargestPart, bytes.size() - at)), MPI_BYTE, 0,
               MPI_COMM_WORLD, &part);
    int is_done = 0;
    for (MPI_Test(&part, &is_done, MPI_STATUS_IGNORE); is_done == 0;
         MPI_Test(&part, &is_done, MPI_STATUS_IGNORE)) {
      std::this_thread::sleep_for(kPause);
    }
  }
}

Times median(std::vector<Times> times) {
  const auto by = [&](double Times::*field) {
    std::sort(times.begin(), times.end(),
              [field](const Times& a, const Times& b) { return a.*field < b.*field; });
    return times[times.size() / 2].*field;
  };
  return {by(&Times::wall), by(&Times::processor)};
}

void measure(int rank, int size) {
  int64_t* counter = nullptr;
  MPI_Win window = MPI_WIN_NULL;
  MPI_Win_allocate(rank == 0 ? sizeof(int64_t) : 0, sizeof(int64_t), MPI_INFO_NULL, MPI_COMM_WORLD,
                   static_cast<void*>(&counter), &window);
  if (rank == 0) {
    *counter = 0;
  }
  MPI_Win_lock_all(0, window);
  std::vector<char> bytes(kBroadcast);
  std::vector<Times> request;
  std::vector<Times> one_sided;
  std::vector<Times> broadcast;
  for (int round = 0; round < kRounds; ++round) {
    request.push_back(time_of([&] { on_request(rank, size); }));
    one_sided.push_back(time_of([&] { by_counter(rank, window); }));
    broadcast.push_back(time_of([&] { share(bytes); }));
  }
  MPI_Win_unlock_all(window);
  const bool is_right = rank != 0 || *counter == int64_t{kRounds} * kPerRank * (size - 1);
  MPI_Win_free(&window);
  if (rank != 0) {
    return;
  }
  const double n = static_cast<double>(kPerRank) * (size - 1);
  std::printf(
      "%d ranks, medians of %d rounds; rank 0 waits busily, so its processor time is an upper bound\n", size,
      kRounds);
  std::printf("on request: %.2f us a hand-out, %.2f us of rank 0's processor\n",
              1e6 * median(request).wall / n, 1e6 * median(request).processor / n);
  std::printf("counter:    %.2f us a hand-out, %.2f us of rank 0's processor%s\n",
              1e6 * median(one_sided).wall / n, 1e6 * median(one_sided).processor / n,
              is_right ? "" : "; the counter is WRONG");
  std::printf("broadcast:  %.2f GB/s\n", 1e-9 * static_cast<double>(kBroadcast) / median(broadcast).wall);
}

}  // namespace

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank = 0;
  int size = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  if (size > 1) {
    measure(rank, size);
  } else {
    std::fputs("hand_out: run by mpirun with two ranks or more\n", stderr);
  }
  MPI_Finalize();
  return size > 1 ? 0 : 1;
}
