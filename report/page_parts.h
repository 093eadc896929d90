// SPDX-License-Identifier: Apache-2.0
//
// The parts of a page, embedded at build time (embed.cmake). All are empty in a build without them.
#pragma once

#include <string_view>

extern const std::string_view kPageTemplate;  // with {{NAME}} where the other parts go
extern const std::string_view kPageStyle;
extern const std::string_view kPageScript;
extern const std::string_view kPlotLibrary;
extern const std::string_view kPlotLicences;
extern const std::string_view kPlotLibraryVersion;
