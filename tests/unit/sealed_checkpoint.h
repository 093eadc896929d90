// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "src/state_lines.h"
#include "util/checksum.h"

namespace tavo_test {

// The text of a checkpoint of these lines, whose checksum is right.
inline std::string sealed_checkpoint(const std::string& lines) {
  const std::string text = "tavo checkpoint\t2\n" + lines;
  return text + "end\t" + hexadecimal(checksum(text.data(), text.size()), 8) + "\n";
}

}  // namespace tavo_test
