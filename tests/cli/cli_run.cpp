// SPDX-License-Identifier: Apache-2.0
#include "tests/cli/cli_run.h"

#include <algorithm>
#include <random>

namespace tavo_test {

namespace fs = std::filesystem;

Words operator+(Words first, const Words& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

GenotypeData balanced_data(int n_samples, int n_snps, double missing) {
  std::mt19937 random(20240517);
  GenotypeData data = random_data(random, n_samples, n_snps, missing);
  for (size_t s = 0; s < data.classes.size(); ++s) {
    data.classes[s] = s % 2 == 0 ? 1 : 0;
  }
  return data;
}

CliFolder::CliFolder() : CliFolder(balanced_data(40, 6)) {}

CliFolder::CliFolder(const GenotypeData& data) {
  write("g.dat", normal_file(data));
}

RunResult CliFolder::run(const Words& words, const Environment& environment) const {
  return run_program(tavo_program(), words, dir_.path(), environment);
}

Words mdr_words() {
  return {"--in", "g.dat",   "--out", "r.csv", "--measure", "ba",       "--thread",
          "8",    "--block", "2",     "--gpu", "2",         "--device", "cpu"};
}

RunResult CliFolder::run_mdr(const Words& more, const Environment& environment) const {
  return run(mdr_words() + more, environment);
}

std::vector<std::string> CliFolder::lines(const std::string& name) const {
  return exists(name) ? split_lines(read_file(path(name))) : std::vector<std::string>{};
}

std::vector<std::string> CliFolder::names_with(const std::string& part) const {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(dir_.path())) {
    const std::string name = entry.path().filename().string();
    if (contains(name, part)) {
      names.push_back(name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

size_t line_at(const std::string& text, const std::string& line) {
  const std::string wanted = line + "\n";
  if (begins_with(text, wanted)) {
    return 0;
  }
  const size_t at = text.find("\n" + wanted);
  return at == std::string::npos ? at : at + 1;
}

bool has_line(const std::string& text, const std::string& line) {
  return line_at(text, line) != std::string::npos;
}

bool begins_with(const std::string& text, const std::string& start) {
  return text.compare(0, start.size(), start) == 0;
}

std::vector<std::string> split(const std::string& text, char delimiter) {
  std::vector<std::string> fields(1);
  for (const char c : text) {
    if (c == delimiter) {
      fields.emplace_back();
    } else {
      fields.back().push_back(c);
    }
  }
  return fields;
}

int notices_with(const RunResult& run, const Words& parts) {
  int count = 0;
  for (const std::string& line : split_lines(run.err)) {
    const bool all = std::all_of(parts.begin(), parts.end(),
                                 [&](const std::string& part) { return contains(line, part); });
    if (begins_with(line, "tavo: ") && all) {
      ++count;
    }
  }
  return count;
}

}  // namespace tavo_test
