// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

#include "cpu/range_search.h"
#include "tests/support/search_scene.h"

namespace tavo_test {

// The lane search of an instruction set, with all that it reads.
struct Lanes {
  LanePlanes planes;
  std::unique_ptr<const SampleRows> rows;
  std::unique_ptr<RangeSearch> search;

  // threads: that make planes and rows.
  Lanes(const Scene& scene, const WorkerSetupCommand& setup, const Segments& segments, InstructionSet set,
        size_t threads)
      : planes(scene.problem, segments, threads),
        rows(make_sample_rows(scene.problem, setup, segments, planes, threads)) {
    search = make_lane_search(scene.problem, setup, segments, planes, rows.get(), set);
  }
};

}  // namespace tavo_test
