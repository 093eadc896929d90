// SPDX-License-Identifier: Apache-2.0
//
// The page that shows results: one file of HTML that holds everything it needs.
#pragma once

#include <functional>
#include <string>
#include <string_view>

// Whether this build has the parts of a page. It has not when the plotting library was missing.
bool has_page();

// Writes the page to `take`, in pieces. title: as it is; data: writes the JSON of the results, as JsonWriter
// does.
void write_page(const std::string& title, const std::function<void()>& data,
                const std::function<void(std::string_view)>& take);
