// SPDX-License-Identifier: Apache-2.0
//
// Every option in one table: what the scan looks names up in and what --help prints.
#pragma once

#include <optional>
#include <span>
#include <string>

#include "src/options.h"

// Takes the value at argument position `position` (its text is value). Returns the exit status of a refusal,
// whose message it has printed.
using OptionHandler = std::optional<int> (*)(const char* name, const char* value, int position,
                                             RunArguments* arguments);

struct Option {
  const char* name;   // without the dashes, lower case
  const char* value;  // what the value is, for --help
  const char* help;
  bool counted;  // towards kMaxArguments: the options of the report's command line
  OptionHandler take;
};

std::span<const Option> option_table();

// The option of this name in any case, or null.
const Option* find_option(const std::string& name);

// The words of --measure in the order of their codes.
std::span<const char* const> measure_names();

// The words of --missing in the order of their codes.
std::span<const char* const> missing_names();
