// SPDX-License-Identifier: Apache-2.0
#include "tests/report/report_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

namespace tavo_test {

ReportFolder::ReportFolder(double missing, int n_samples, int n_snps) {
  std::mt19937 random(97);
  data_ = random_data(random, n_samples, n_snps, missing);
  for (int s = 0; s < n_samples; ++s) {
    const bool risk = (data_.at(s, 2) == 1) != (data_.at(s, 4) == 1);
    data_.classes[static_cast<size_t>(s)] = (s % 10 == 0) != risk ? 1 : 0;
  }
  write("g.dat", normal_file(data_));
}

void ReportFolder::search(const Words& more) const {
  Words words = {"--in",    "g.dat", "--out", "r.csv", "--measure", "ba",  "--thread", "8",
                 "--block", "4",     "--gpu", "1",     "--device",  "cpu", "--tidy",   "t.tsv"};
  words.insert(words.end(), more.begin(), more.end());
  const RunResult run = run_program(tavo_program(), words, dir_.path());
  ASSERT_EQ(run.status, 0) << run.out << run.err;
}

void ReportFolder::regress(const std::string& kind, const Words& more) const {
  Words words = {"--in",     "g.dat", "--out",       "r.csv",  "--regression", kind,
                 "--thread", "8",     "--block",     "4",      "--gpu",        "1",
                 "--device", "cpu",   "--precision", "double", "--tidy",       "t.tsv"};
  words.insert(words.end(), more.begin(), more.end());
  const RunResult run = run_program(tavo_program(), words, dir_.path());
  ASSERT_EQ(run.status, 0) << run.out << run.err;
}

Words ReportFolder::names() const {
  Words names;
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

RunResult ReportFolder::report(const Words& words) const {
  return run_program(TAVO_REPORT_PROGRAM, words, dir_.path());
}

RunResult ReportFolder::interrupted_report(const Words& words, const std::string& begun, int signal) const {
  write("begun", begun);
  EXPECT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  std::string command = TAVO_REPORT_PROGRAM;
  for (const std::string& word : words) {
    command += " " + word;
  }
  // Half a second after the last bytes went into the pipe the program waits for more.
  const RunResult result = interrupt_program(
      "/bin/sh",
      {"-c", "(exec > pipe; cat begun; sleep 0.5; echo > ready; exec sleep 20) & echo $! > sleeper; exec " +
                 command},
      dir_.path(), "ready", signal);
  kill(std::stoi(read("sleeper")), SIGKILL);
  for (const std::string name : {"begun", "pipe", "ready", "sleeper"}) {
    std::filesystem::remove(path(name));
  }
  return result;
}

RunResult ReportFolder::report_without_pages(const Words& words) const {
  return run_program(TAVO_REPORT_WITHOUT_PAGES, words, dir_.path());
}

nlohmann::json ReportFolder::json(const std::string& input, const Words& more) const {
  Words words = {"--in", input, "--format", "json"};
  words.insert(words.end(), more.begin(), more.end());
  const RunResult run = report(words);
  EXPECT_EQ(run.status, 0) << run.err;
  return nlohmann::json::parse(run.out);
}

nlohmann::json ReportFolder::page_data(const std::string& page) const {
  const std::string text = read(page);
  const std::string start = "<script type=\"application/json\" id=\"data\">";
  const size_t begin = text.find(start);
  EXPECT_NE(begin, std::string::npos);
  const size_t end = text.find("</script>", begin);
  return nlohmann::json::parse(text.substr(begin + start.size(), end - begin - start.size()));
}

}  // namespace tavo_test
