// SPDX-License-Identifier: Apache-2.0
//
// The result files of regressions: the head of either kind, and the whole logistic report.
#include <cmath>
#include <cstdio>
#include <limits>

#include "device/worker.h"
#include "src/TFmMDR.h"
#include "src/number_text.h"
#include "src/regression.h"
#include "src/report_head.h"
#include "src/run_config.h"

namespace {

// The Time and Options sections. The third line names the score file of a run whose rows are written as they
// come, and the covariate file of a logistic report, which has a line for its top count, too.
void write_head(MdrWriter& writer, const std::string& path, double elapsed_seconds, bool logistic_report,
                int top) {
  write_time_and_command(writer, elapsed_seconds);
  const char* third_name = logistic_report ? "3.covariate_file," : "3.score_file,";
  const char* third_path = logistic_report ? g_covFileName : szScore;
  writer.WriteLine(std::string("1.input_file,") + szInput);
  writer.WriteLine("2.result_file," + path);
  writer.WriteLine(std::string(third_name) + (third_path[0] == '\0' ? "-" : third_path));
  writer.WriteLine(std::string("4.regression_method,") +
                   (g_regression == kLogisticRegression ? "Logistic" : "Linear"));
  writer.WriteLine("5.gpu_count," + std::to_string(g_cntDevCuda));
  writer.WriteLine("6.thread_count," + std::to_string(g_cntThreadCuda));
  writer.WriteLine("7.block_count," + std::to_string(g_cntBlockCuda));
  if (logistic_report) {
    writer.WriteLine("8.top_report," + std::to_string(top));
  }
  write_results_banner(writer);
}

constexpr const char* kPairColumns = ",snp2_1,snp2_2,snp1_1*snp2_1,snp1_1*snp2_2,snp1_2*snp2_1,snp1_2*snp2_2";

// A double as a 32-bit integer; what does not fit, or is no number, is the lowest.
int truncated(double value) {
  constexpr double kLimit = 2147483648.0;
  return value > -kLimit - 1.0 && value < kLimit ? static_cast<int>(value) : std::numeric_limits<int>::min();
}

}  // namespace

bool TFmMDR::WriteResultRegression(const std::string& path, double elapsed_seconds, MdrWriter* writer) {
  if (!writer->SaveWhenComplete(path.c_str())) {
    return false;
  }
  write_head(*writer, path, elapsed_seconds, false, 0);
  writer->WriteLine("<<Regression result>>");
  writer->WriteLine("num,SNP,col,or,beta,p");
  return true;
}

Status TFmMDR::WriteResultLogisticRegression(const std::string& path, double elapsed_seconds, int n_samples,
                                             const RunSettings& settings,
                                             const std::vector<std::string>& names,
                                             const RegressionResult& result) {
  MdrWriter writer;
  if (!writer.SaveWhenComplete(path.c_str())) {
    return writer.Close();
  }
  write_head(writer, path, elapsed_seconds, true, settings.top);
  const RegressionRules rules = regression_rules(settings);
  const int order = rules.order();
  // The title shows where on the command line the order stands.
  writer.WriteLine("<<" + std::to_string(g_combOrder) + "-Order Best Combination Sets>>");
  writer.WriteLine(std::string("num,SNP,coverged,iter,model_dev,null_dev,p,snp1_1,snp1_2") +
                   (order == 2 ? kPairColumns : ""));
  const auto np = static_cast<size_t>(rules.columns(g_covCnt));
  for (size_t r = 0; r < result.top.size(); ++r) {
    const RegressionRow& row = result.top[r].row;
    std::string line = std::to_string(r) + "," + combination_name(result.top[r].snps, names) + "," +
                       (row[np] == 1.0 ? "Y" : "N") + "," + std::to_string(truncated(row[np + 1]));
    const double values[] = {row[np + 2],
                             row[0],
                             result.null_model.deviance,
                             logistic_p_value(row[0], order, n_samples, result.null_model, rules.precision),
                             row[1],
                             row[2]};
    for (const double value : values) {
      line += "," + long_number_text(value);
    }
    for (size_t slot = 3; order == 2 && slot <= 8; ++slot) {
      line += "," + long_number_text(row[slot]);
    }
    writer.WriteLine(line);
  }
  writer.WriteLine(kSectionEnd);
  return writer.Close();
}
