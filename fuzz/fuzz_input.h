// SPDX-License-Identifier: Apache-2.0
//
// What fuzz targets share: how they take their bytes apart, and how they say that something is wrong.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// Between the parts of an input that stands for several files.
inline constexpr char kPartSeparator = '\x1e';

// The bytes of one execution.
class FuzzInput {
 public:
  FuzzInput(const uint8_t* data, size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

  // The next byte, 0 behind the last.
  uint8_t byte();

  // A number from lowest to highest, made from the next byte.
  int number(int lowest, int highest);

  // The bytes up to the next separator, which is taken too, or all that are left.
  std::string_view part();

  std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
};

// Ends the process, with a message, as a finding of the fuzzer when something that always holds does not.
void require(bool holds, const char* what);
