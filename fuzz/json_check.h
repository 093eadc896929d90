// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

// Whether the text is one JSON value in UTF-8 and nothing else.
bool is_json(std::string_view text);
