// SPDX-License-Identifier: Apache-2.0
#include "tests/support/vectors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <limits>

#include "tests/support/run_program.h"

namespace tavo_test {

std::vector<Json> load_cases(const std::string& file) {
  const Json content = Json::parse(read_file(source_root() / "tests/data/vectors" / (file + ".json")));
  return content.at("cases").get<std::vector<Json>>();
}

double number(const Json& value) {
  if (!value.is_string()) {
    return value.get<double>();
  }
  const std::string& text = value.get_ref<const std::string&>();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  if (text == "nan") {
    return std::numeric_limits<double>::quiet_NaN();
  }
  if (text == "inf") {
    return kInfinity;
  }
  if (text == "-inf") {
    return -kInfinity;
  }
  throw std::runtime_error("not a number: " + text);
}

std::vector<double> numbers(const Json& list) {
  std::vector<double> values;
  for (const Json& value : list) {
    values.push_back(number(value));
  }
  return values;
}

std::vector<int> integers(const Json& list) {
  return list.get<std::vector<int>>();
}

std::vector<int> flat_integers(const Json& lists) {
  std::vector<int> values;
  for (const Json& list : lists) {
    const std::vector<int> entries = integers(list);
    values.insert(values.end(), entries.begin(), entries.end());
  }
  return values;
}

bool agree(double actual, double expected, double relative) {
  if (std::isnan(actual) || std::isnan(expected)) {
    return std::isnan(actual) && std::isnan(expected);
  }
  // Infinities are equal or differ by more than any tolerance.
  return actual == expected ||
         (std::isfinite(expected) && std::fabs(actual - expected) <= relative * std::fabs(expected));
}

void expect_agree(const std::vector<double>& actual, const std::vector<double>& expected) {
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < actual.size(); ++i) {
    EXPECT_TRUE(agree(actual[i], expected[i], 1e-12))
        << "entry " << i << ": " << actual[i] << " instead of " << expected[i];
  }
}

bool has_tag(const Json& one_case, const std::string& beginning) {
  for (const Json& tag : one_case.at("tags")) {
    if (tag.get_ref<const std::string&>().rfind(beginning, 0) == 0) {
      return true;
    }
  }
  return false;
}

void run_cases(const std::string& file, const std::map<std::string, CaseFunction>& functions) {
  std::map<std::string, int> ran;
  int n_ran = 0;
  int n_skipped = 0;
  for (const Json& one_case : load_cases(file)) {
    const auto routine = one_case.at("fn").get<std::string>();
    SCOPED_TRACE(one_case.at("id").get<std::string>() + " " + routine + " " + one_case.at("tags").dump());
    const auto found = functions.find(routine);
    if (found == functions.end()) {
      ADD_FAILURE() << "nothing runs the cases of " << routine;
    } else if (has_tag(one_case, "rounding:")) {
      ++n_skipped;
    } else {
      found->second(one_case.at("in"), one_case.at("out"));
      ++ran[routine];
      ++n_ran;
    }
  }
  for (const auto& [routine, function] : functions) {
    EXPECT_GT(ran[routine], 0) << "no case of " << routine << " ran";
  }
  std::cout << file << ": " << n_ran << " cases ran, " << n_skipped << " skipped\n";
  testing::Test::RecordProperty("cases_ran", n_ran);
  testing::Test::RecordProperty("cases_skipped", n_skipped);
}

}  // namespace tavo_test
