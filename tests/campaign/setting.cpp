// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/setting.h"

#include "cpu/simd.h"

namespace tavo_test {

Words Setting::words() const {
  Words words = {"--gpu",   std::to_string(workers), "--thread", std::to_string(threads),
                 "--block", std::to_string(blocks),  "--device", device};
  if (progress) {
    words.insert(words.end(), {"--progress", "on"});
  }
  if (checkpoint) {
    words.insert(words.end(), {"--checkpoint", "checkpoint"});
  }
  return words;
}

Environment Setting::environment() const {
  Environment environment;
  if (!instruction_set.empty()) {
    environment.emplace_back("TAVO_SIMD", instruction_set);
  }
  if (checkpoint) {
    environment.emplace_back("TAVO_CHECKPOINT_SECONDS", "0");
  }
  return environment;
}

std::vector<std::string> instruction_sets() {
  std::vector<std::string> names;
  for (const InstructionSet set : {InstructionSet::kScalar, InstructionSet::kAvx2, InstructionSet::kAvx512}) {
    if (has(set)) {
      names.emplace_back(name_of(set));
    }
  }
  return names;
}

namespace {

// `--version` lists every backend with what it has found.
bool has_cuda_device() {
  const RunResult version = run_program(tavo_program(), {"--version"}, "/");
  const size_t at = version.out.find(" cuda (");
  return at != std::string::npos && version.out.compare(at, 17, " cuda (no device)") != 0;
}

}  // namespace

std::vector<Setting> draw_settings(Draw& draw, bool can_checkpoint) {
  static const bool cuda = has_cuda_device();
  std::vector<Setting> settings;
  std::vector<std::string> sets = instruction_sets();
  if (cuda) {
    sets.emplace_back();
  }
  for (const std::string& set : sets) {
    Setting& setting = settings.emplace_back();
    setting.device = set.empty() ? "cuda" : "cpu";
    setting.instruction_set = set;
    setting.workers = set.empty() ? 1 : draw.from(1, 8);
    setting.threads = draw.of<int>({1, 2, 3, 7, 31, 32, 64, 257});
    setting.blocks = draw.of<int>({1, 2, 3, 5, 64});
    setting.progress = draw.one_in(10);
    setting.checkpoint = can_checkpoint && draw.one_in(6);
  }
  return settings;
}

}  // namespace tavo_test
