// SPDX-License-Identifier: Apache-2.0
//
// What a killed run leaves of the files that it writes under names of its own choice.
#pragma once

#include <string>
#include <string_view>

// Whether a run may take this name: nothing stands there, or a regular file that begins as the run's own
// files do, with first_line, or ends within it.
bool is_free_name(const std::string& path, std::string_view first_line);
