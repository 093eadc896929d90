// SPDX-License-Identifier: Apache-2.0
//
// Bytes of a file in a message.
#pragma once

#include <string>
#include <string_view>

// The text in double quotes for a terminal: control characters, quotes and backslashes as \xHH, at most 40
// bytes, "..." for the rest.
std::string in_quotes(std::string_view text);

// The same without the quotes around and without a limit.
std::string escaped(std::string_view text);
