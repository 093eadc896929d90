// SPDX-License-Identifier: Apache-2.0
//
// A batch in passes that take turns on two lanes, each a stream with memory of its own: while the kernels of
// one pass run, the results of the other are copied back and handed out, and its next items are sent.
#pragma once

#include <algorithm>
#include <cstddef>

#include "cuda/device_buffer.h"

constexpr size_t kPassLanes = 2;

// How many items a pass takes, and how many lanes take turns: one where the memory that a pass may take does
// not hold an item for each of two.
struct PassPlan {
  PassPlan(size_t bytes_per_item, size_t most) {
    const size_t items = memory_budget() / bytes_per_item;
    lanes = items < kPassLanes ? 1 : kPassLanes;
    most_per_pass = std::clamp<size_t>(items / lanes, 1, most);
  }

  size_t lanes;
  size_t most_per_pass;
};

// A lane: its memory, and the items that are under way, n = 0 for none. The stream goes first, and waits for
// its work before the memory goes.
template <typename Buffers>
struct PassLane : Buffers {
  size_t first = 0;
  size_t n = 0;
  DeviceStream stream;
};

// Runs items 0 .. total - 1. start(lane) queues lane.n items from lane.first on, the copies back included, on
// the lane's stream; finish(lane) takes the results once they are there.
template <typename Buffers, typename Start, typename Finish>
void run_passes(PassLane<Buffers> (&lanes)[kPassLanes], const PassPlan& plan, size_t total, Start start,
                Finish finish) {
  const auto collect = [&](PassLane<Buffers>& lane) {
    if (lane.n > 0) {
      lane.stream.wait();
      finish(lane);
      lane.n = 0;
    }
  };
  size_t turn = 0;
  for (size_t done = 0; done < total; turn = (turn + 1) % plan.lanes) {
    PassLane<Buffers>& lane = lanes[turn];
    collect(lane);
    if (lane.stream.get() == nullptr) {
      lane.stream.open();
    }
    lane.first = done;
    lane.n = std::min(total - done, plan.most_per_pass);
    start(lane);
    done += lane.n;
  }
  for (PassLane<Buffers>& lane : lanes) {
    collect(lane);
  }
}
