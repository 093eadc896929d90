// SPDX-License-Identifier: Apache-2.0
//
// The paths of a command line, checked before the work.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "util/status.h"

struct NamedPath {
  const char* option;
  std::string path;
};

void add_path(std::vector<NamedPath>* paths, const char* option, const std::optional<std::string>& path);

// The three files of a PLINK 1 binary prefix.
void add_bed_paths(std::vector<NamedPath>* paths, const char* option, const std::string& prefix);

// Refuses a result that would take the place of an input, or of another result.
Status check_target_paths(const std::vector<NamedPath>& inputs, const std::vector<NamedPath>& outputs);
