// SPDX-License-Identifier: Apache-2.0
#include "src/report_head.h"

#include <cstdio>

#include "device/worker.h"
#include "src/run_config.h"

const std::string kSectionEnd(79, '=');

namespace {

// The value of an option as typed, read as a number, or otherwise when it was not given.
std::string typed_number(int position, int otherwise) {
  return std::to_string(position < 0 ? otherwise : integer_of(typed_value(position, "")));
}

}  // namespace

std::string combination_name(const std::vector<int>& snps, const std::vector<std::string>& names) {
  std::string text = "(";
  for (const int snp : snps) {
    text += " " + names[static_cast<size_t>(snp)];
  }
  return text + " )";
}

void write_time_and_command(MdrWriter& writer, double elapsed_seconds) {
  writer.WriteLine("====================================   Time   =====================================");
  char seconds[400];
  std::snprintf(seconds, sizeof(seconds), "Total time,%.2f sec", elapsed_seconds);
  writer.WriteLine(seconds);
  writer.WriteLine(kSectionEnd);
  writer.WriteLine("");
  writer.WriteLine("====================================  Options  ====================================");
  std::string command = "Command,";
  for (int i = 0; i < g_argc; ++i) {
    command += g_argv[i];
    command += ' ';
  }
  writer.WriteLine(command);
}

void write_results_banner(MdrWriter& writer) {
  writer.WriteLine(std::string(78, '='));
  writer.WriteLine("");
  writer.WriteLine("====================================  Results  ====================================");
}

void write_report_head(MdrWriter& writer, const std::string& path, double elapsed_seconds, int folds) {
  write_time_and_command(writer, elapsed_seconds);
  writer.WriteLine(std::string("1.input_file,") + szInput);
  writer.WriteLine("2.result_file," + path);
  writer.WriteLine(std::string("3.score_file,") + (szScore[0] == '\0' ? "-" : szScore));
  writer.WriteLine(std::string("4.combination order,") + typed_value(g_combOrder, "2"));
  writer.WriteLine("5.cross validation count," + std::to_string(folds));
  writer.WriteLine("6.column number of response variable,1");
  writer.WriteLine("7.case_num,1");
  writer.WriteLine("8.method to make threshold for testing,1");
  writer.WriteLine(std::string("9.measure for snp selection,") + typed_value(g_selidx, ""));
  // The typed keyword read as a number: 0 for every keyword.
  writer.WriteLine("10.missing method," + typed_number(g_misidx, 3));
  writer.WriteLine("11.tie," + typed_number(g_tieidx, 0));
  writer.WriteLine("12.p-value for making permutation threshold,0.0010");
  writer.WriteLine("13.number of final significant snps for presentation," + typed_number(g_topidx, 10));
  writer.WriteLine("14.selected snp for permutation test,100");
  writer.WriteLine("15.repeated number for permutation test,100");
  writer.WriteLine("16.seleced cvfold,0");
  writer.WriteLine("17.suffling," + typed_number(g_shuidx, 0));
  writer.WriteLine("18.gpu_count," + std::to_string(g_cntDevCuda));
  writer.WriteLine("19.thread_count," + std::to_string(g_cntThreadCuda));
  writer.WriteLine("20.block_count," + std::to_string(g_cntBlockCuda));
  write_results_banner(writer);
}
