// SPDX-License-Identifier: Apache-2.0
//
// A block of the fused search as loops: the team and the warps of cuda/tile_search_body.h on the host. Phases
// run the threads in an order that changes, so that one which depended on it gave other results.
#pragma once

#include <cstring>
#include <vector>

#include "cuda/tile_search_body.h"
#include "tests/cuda/matrix_reference.h"

namespace tavo_test {

class HostWarp {
 public:
  // Registers begin as garbage.
  HostWarp() { std::memset(static_cast<void*>(lanes_), 0x5a, sizeof(lanes_)); }

  template <typename Step>
  void each(Step step) {
    for (int lane = 0; lane < kWarpLanes; ++lane) {
      step(lane, lanes_[lane]);
    }
  }
  void multiply_b1_256(int m, int j) { multiply_fragments(lanes_, m, j, 2, product_of_bits); }
  void multiply_b1_128(int m, int j) { multiply_fragments(lanes_, m, j, 1, product_of_bits); }
  void multiply_u8(int m, int j) { multiply_fragments(lanes_, m, j, 2, product_of_bytes); }

  const TileLane& lane(int index) const { return lanes_[index]; }

 private:
  TileLane lanes_[kWarpLanes];
};

class HostTileBlock {
 public:
  // Shared memory begins as garbage.
  HostTileBlock(int n_pairs, int n_folds)
      : memory_(tile_shared_bytes(n_pairs, n_folds) / sizeof(uint64_t) + 1, 0x7e7e7e7e7e7e7e7e),
        shared_(tile_shared(reinterpret_cast<unsigned char*>(memory_.data()), n_pairs, n_folds)) {}

  TileShared shared() const { return shared_; }
  template <typename Phase>
  void phase(Phase run) {
    for (int i = 0; i < kTileThreads; ++i) {
      run(turned(i));
    }
    turn_ += 77;
  }
  template <typename Phase>
  bool any(Phase run) {
    bool found = false;
    for (int i = 0; i < kTileThreads; ++i) {
      found = run(turned(i)) || found;
    }
    return found;
  }
  template <typename Phase>
  void warps(Phase run) {
    for (int i = 0; i < kTileWarps; ++i) {
      HostWarp warp;
      run(turned(i) % kTileWarps, warp);
    }
    turn_ += 3;
  }

 private:
  int turned(int i) const {
    const int forth = (i + turn_) % kTileThreads;
    return turn_ % 2 == 0 ? forth : kTileThreads - 1 - forth;
  }

  std::vector<uint64_t> memory_;
  TileShared shared_;
  int turn_ = 0;
};

}  // namespace tavo_test
