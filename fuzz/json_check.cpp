// SPDX-License-Identifier: Apache-2.0
#include "fuzz/json_check.h"

#include <nlohmann/json.hpp>

bool is_json(std::string_view text) {
  return nlohmann::json::accept(text);
}
