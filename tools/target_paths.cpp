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

namespace {

// Also for files that are not there yet, and that links lead to.
bool are_the_same(const std::string& a, const std::string& b) {
  std::error_code error;
  if (a == b || std::filesystem::equivalent(a, b, error)) {
    return true;
  }
  const auto real = [&error](const std::string& path) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(path), error);
  };
  return real(a) == real(b) && !error;
}

}  // namespace

Status check_target_paths(const std::vector<NamedPath>& inputs, const std::vector<NamedPath>& outputs) {
  std::vector<NamedPath> others = inputs;
  for (const NamedPath& output : outputs) {
    for (const NamedPath& other : others) {
      if (are_the_same(output.path, other.path)) {
        return Status::failure(output.path + ": " + output.option + " is the same file as " + other.option);
      }
    }
    others.push_back(output);
  }
  return {};
}
