// SPDX-License-Identifier: Apache-2.0
//
// Recorded cases of single routines, tests/data/vectors/<file>.json: loading them and running each one.
#pragma once

#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace tavo_test {

using Json = nlohmann::json;

// All cases of one file, in their order: objects with id, fn, in, out and tags. file: a name without folder
// and ending.
std::vector<Json> load_cases(const std::string& file);

// A number, or one of the texts "nan", "inf" and "-inf" that stand for what JSON cannot write.
double number(const Json& value);
std::vector<double> numbers(const Json& list);
std::vector<int> integers(const Json& list);

// The entries of a list of lists, one after another.
std::vector<int> flat_integers(const Json& lists);

// Whether they agree within a relative difference (0: exactly). NaN agrees with NaN.
bool agree(double actual, double expected, double relative);

// Entry by entry, with a message for each that differs. Allows a relative difference of 1e-12.
void expect_agree(const std::vector<double>& actual, const std::vector<double>& expected);

bool has_tag(const Json& one_case, const std::string& beginning);

// Runs every case of the file through the function registered for its routine; a routine without one is a
// failure. Cases tagged "rounding: ..." are skipped: a comparison in them is decided by the last bit. How
// many ran and how many were skipped is printed and recorded in the test's report.
using CaseFunction = std::function<void(const Json& in, const Json& out)>;
void run_cases(const std::string& file, const std::map<std::string, CaseFunction>& functions);

}  // namespace tavo_test
