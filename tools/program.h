// SPDX-License-Identifier: Apache-2.0
//
// What every companion program does alike: its messages, its exit statuses, its outermost frame.
#pragma once

#include <string>
#include <vector>

#include "util/status.h"

// Writes "PROGRAM: MESSAGE" to standard error.
void complain(const char* program, const std::string& message);

// Each says what happened and returns the exit status.

// The words on the command line make no sense: 2.
int wrong_usage(const char* program, const Status& usage);

// An input is refused or an output cannot be written: 1; or the program was stopped: 128 + signal.
int refused(const char* program, const Status& status);

// Writes the text to standard output: 0, or 1 when that is not possible.
int print_result(const char* program, const std::string& text);

// The end of a command: its warnings, then its text or why it failed. Returns the exit status.
int finish_command(const char* program, const Status& status, const std::vector<std::string>& warnings,
                   const std::string& text);

// The first lines of --version: the program's version and the compiler.
std::string version_text(const char* program);

// Calls `command` with the words behind the program's name and returns its status; an exception becomes a
// message.
int run_program(const char* program, int argc, char** argv,
                int (*command)(const std::vector<std::string>& words));
