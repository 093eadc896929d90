// SPDX-License-Identifier: Apache-2.0
//
// What may be a name or another field of a file, and where a message says it stands.
#pragma once

#include <string>
#include <string_view>

// What makes the text unfit for a SNP name, as a message; "" when nothing does. A name has 1 to 254 bytes,
// none of them a control character: NUL ends a name in a genotype file, and a line break would break the
// lines of every report.
std::string name_fault(std::string_view name);

// What makes the text unfit for a field of a file whose fields are separated by blanks; "" when nothing does.
// At least one byte, no blank, no control character, at most `longest` bytes.
std::string field_fault(std::string_view text, size_t longest);

// Bytes of a sample's FID or IID, at most.
inline constexpr size_t kLongestIdentifier = 255;
