// SPDX-License-Identifier: Apache-2.0
//
// What must not change a result: the device, its instruction set, how the work is cut into pieces, and what
// watches over it.
#pragma once

#include <string>
#include <vector>

#include "tests/campaign/draw.h"
#include "tests/support/run_program.h"

namespace tavo_test {

using Words = std::vector<std::string>;

struct Setting {
  std::string device = "cpu";   // a value of --device
  std::string instruction_set;  // of TAVO_SIMD, where the device is the processor
  int workers = 1;
  int threads = 1;
  int blocks = 1;
  bool progress = false;
  bool checkpoint = false;

  Words words() const;
  Environment environment() const;
};

// The instruction sets of this processor.
std::vector<std::string> instruction_sets();

// One setting for each instruction set at hand, and one for CUDA where there is a device.
// can_checkpoint: whether the run can keep a checkpoint.
std::vector<Setting> draw_settings(Draw& draw, bool can_checkpoint);

}  // namespace tavo_test
