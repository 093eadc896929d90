// SPDX-License-Identifier: Apache-2.0
//
// Numbers in text files and on command lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// The whole text is one decimal number, such as 7, -0.5 or +1e-3, that a float can hold. False for words,
// inf, nan, hexadecimal and what is too large.
bool parse_number(std::string_view text, double* value);

// The whole text is one integer without a sign, at most `most`.
bool parse_count(std::string_view text, int64_t most, int64_t* value);

// The shortest text that reads back to the same double.
std::string shortest_text(double value);
