// SPDX-License-Identifier: Apache-2.0
//
// Which instruction set the searches use: found once, at start.
#pragma once

#include <string>

#include "util/status.h"

enum class InstructionSet { kScalar, kAvx2, kAvx512 };

// The name as TAVO_SIMD and the line that says what runs know it.
const char* name_of(InstructionSet set);

// Whether this processor has it.
bool has(InstructionSet set);

// All that this processor has, best first, as names with blanks between them.
std::string instruction_sets_here();

// The best that this processor has, or the one that the environment variable TAVO_SIMD forces (for tests).
// Fails when that names none, or one that is not here.
Status choose_instruction_set(InstructionSet* set);
