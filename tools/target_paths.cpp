// SPDX-License-Identifier: Apache-2.0
#include "tools/target_paths.h"

#include <filesystem>

#include "tools/bed_source.h"

void add_path(std::vector<NamedPath>* paths, const char* option, const std::optional<std::string>& path) {
  if (path) {
    paths->push_back({option, *path});
  }
}

void add_bed_paths(std::vector<NamedPath>* paths, const char* option, const std::string& prefix) {
  for (const char* ending : {kBedEnding, kBimEnding, kFamEnding}) {
    paths->push_back({option, prefix + ending});
  }
}

Status check_target_paths(const std::vector<NamedPath>& inputs, const std::vector<NamedPath>& outputs) {
  std::vector<NamedPath> others = inputs;
  for (const NamedPath& output : outputs) {
    for (const NamedPath& other : others) {
      std::error_code not_there;
      if (output.path == other.path || std::filesystem::equivalent(output.path, other.path, not_there)) {
        return Status::failure(output.path + ": " + output.option + " is the same file as " + other.option);
      }
    }
    others.push_back(output);
  }
  return {};
}
