// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "tests/reference/naive_random.h"
#include "tests/reference/naive_run.h"

namespace naive {

std::vector<std::string> report_head(const std::vector<std::string>& options) {
  std::vector<std::string> lines = {
      "====================================   Time   =====================================",
      "Total time,",
      std::string(79, '='),
      "",
      "====================================  Options  ====================================",
      "Command,",
  };
  lines.insert(lines.end(), options.begin(), options.end());
  lines.insert(lines.end(),
               {std::string(78, '='), "",
                "====================================  Results  ===================================="});
  return lines;
}

namespace {

std::string number(double value) {
  if (std::isnan(value)) {
    return "nan";
  }
  char text[400];
  std::snprintf(text, sizeof(text), "%f", value);
  return text;
}

std::string name_of(const GenotypeData& data, const std::vector<int>& comb) {
  std::string text = "(";
  for (const int snp : comb) {
    text += " " + data.names[static_cast<size_t>(snp)];
  }
  return text + " )";
}

std::string typed(const std::optional<std::string>& text, int otherwise) {
  return std::to_string(text ? std::atoi(text->c_str()) : otherwise);
}

std::vector<std::string> head(const Run& run) {
  return report_head({
      "1.input_file," + run.input,
      "2.result_file," + run.output,
      "3.score_file," + (run.score_path.empty() ? "-" : run.score_path),
      "4.combination order," + run.order_text,
      "5.cross validation count," + std::to_string(run.mode >= 2 ? 1 : run.folds),
      "6.column number of response variable,1",
      "7.case_num,1",
      "8.method to make threshold for testing,1",
      "9.measure for snp selection," + run.measure_text,
      "10.missing method," + typed(run.missing_text, 3),
      "11.tie," + typed(run.tie_text, 0),
      "12.p-value for making permutation threshold,0.0010",
      "13.number of final significant snps for presentation," + typed(run.top_text, 10),
      "14.selected snp for permutation test,100",
      "15.repeated number for permutation test,100",
      "16.seleced cvfold,0",
      "17.suffling," + typed(run.shuffling_text, 0),
      "18.gpu_count," + std::to_string(run.workers),
      "19.thread_count," + std::to_string(run.threads),
      "20.block_count," + std::to_string(run.blocks),
  });
}

void cv_block(const GenotypeData& data, const Run& run, int order, const OrderResult& result,
              std::vector<std::string>& lines) {
  lines.push_back("<<" + std::to_string(order) + "-Order Best Combination Sets>>");
  lines.push_back(run.mode == 0 ? "Rank,Best_Combi,WCVC,Train_BA,Test_BA,Train_Chisq,Test_Chisq,Train_Gamma,"
                                  "Test_Gamma,Train_Tau_b,Test_Tau_b,"
                                  "Train_Tau_c,Test_Tau_c,Train_Somers_dx,Test_Somers_dx,Train_Somers_dy,"
                                  "Test_Somers_dy,Train_nmi,Test_nmi, "
                                  "Train_nmi, Test_lr"
                                : "Rank,Best_Combi,WCVC,Aver_Train_BA,Aver_Test_BA,Aver_Train_Chisq,Aver_"
                                  "Test_Chisq,Aver_Train_Gamma,"
                                  "Aver_Test_Gamma,Aver_Train_Tau_b,Aver_Test_Tau_b,Aver_Train_Tau_c,Aver_"
                                  "Test_Tau_c,Aver_Train_Somers_dx,"
                                  "Aver_Test_Somers_dx,Aver_Train_Somers_dy,Aver_Test_Somers_dy,Aver_Train_"
                                  "nmi, Aver_Test_nmi, Aver_Train_lr, "
                                  "Aver_Test_lr");
  for (size_t r = 0; r < result.ranked.size(); ++r) {
    const Ranked& one = result.ranked[r];
    std::string line = std::to_string(r + 1) + "," + name_of(data, one.comb) + "," + number(one.weight);
    for (const size_t m : {0, 2, 3, 4, 5, 6, 7, 8, 9}) {
      line += "," + number(one.values[m]) + "," + number(one.values[16 + m]);
    }
    lines.push_back(line);
  }
  lines.emplace_back(79, '=');
  lines.push_back("<" + std::to_string(order) + "-Order Combinations of SNPs>");
  lines.push_back(
      std::string(
          "CV,Best_Combi,Train_Acc,Test_Acc,Train_BA,Test_BA,Train_Chisq,Test_Chisq,Train_Gamma,Test_Gamma,"
          "Train_Tau_b,Test_Tau_b,Train_Tau_c,Test_Tau_c,Train_Somers_dx,Test_Somers_dx,Train_Somers_dy,"
          "Test_Somers_dy,") +
      (run.mode == 0
           ? "Train_wBA1,Test_wBA1,Train_wBA2,Test_wBA2,Train_wBA3,Test_wBA3,Train_wBA4,Test_wBA4,Train_wBA5,"
             "Test_wBA5,Train_wBA6,Test_wBA6"
           : "Train_nmi, Test_nmi, Train_lr, Test_lr"));
  for (size_t fold = 0; fold < result.lists.size(); ++fold) {
    const std::vector<Entry>& list = result.lists[fold];
    const size_t rows = run.mode == 0 ? list.size() : result.ranked.size();
    for (size_t r = 0; r < rows; ++r) {
      const Entry entry = r < list.size() ? list[r]
                                          : Entry{std::vector<int>(static_cast<size_t>(order), 0),
                                                  std::vector<double>(32, 0.0)};
      std::string line = std::to_string(fold + 1) + "," + name_of(data, entry.comb);
      std::vector<size_t> measures = {1, 0, 2, 3, 4, 5, 6, 7, 8, 9};
      if (run.mode == 0) {
        measures.insert(measures.end(), {10, 11, 12, 13});
      }
      for (const size_t m : measures) {
        line += "," + number(entry.values[m]) + "," + number(entry.values[16 + m]);
      }
      lines.push_back(line);
    }
  }
  lines.emplace_back(79, '=');
}

void exhaustive_block(const GenotypeData& data, const Run& run, int order, const OrderResult& result,
                      std::vector<std::string>& lines) {
  const std::string more = run.mode == 3 ? "nmi,lr," : "";
  lines.push_back("<" + std::to_string(order) + "-Order Combinations of SNPs>");
  lines.push_back(
      "Best_Combi,Accuracy,Balanced_Accuracy,Chisq_Stat,Gamma_Stat,Tau_b,Tau_c,Somers_dx,Somers_dy," + more +
      "wBA1,wBA2,wBA3,wBA4,wBA5,wBA6");
  for (const Entry& entry : result.lists.front()) {
    std::string line = name_of(data, entry.comb);
    const size_t last = run.mode == 3 ? 15 : 13;
    line += "," + number(entry.values[1]) + "," + number(entry.values[0]);
    for (size_t m = 2; m <= last; ++m) {
      line += "," + number(entry.values[m]);
    }
    lines.push_back(line);
  }
  lines.emplace_back(79, '=');
  lines.push_back("<<" + std::to_string(order) + "-Order Best Combination Sets>>");
  lines.push_back(
      std::string(
          "Rank,Best_Combi,Weighted_CVC,Aver_BA,Aver_Chisq,Aver_Gamma,Aver_Tau_b,Aver_Tau_c,Aver_Somers_dx,"
          "Aver_Somers_dy,") +
      (run.mode == 3 ? "Aver_nmi,Aver_lr," : "") +
      "Aver_wBA1,Aver_wBA2,Aver_wBA3,Aver_wBA4,Aver_wBA5,Aver_wBA6,P_Value");
  for (size_t r = 0; r < result.ranked.size(); ++r) {
    const Ranked& one = result.ranked[r];
    std::string line = std::to_string(r + 1) + "," + name_of(data, one.comb) + "," + number(one.weight);
    for (size_t m = 0; m < 16; ++m) {
      if (m != 1 && (run.mode == 3 || (m != 8 && m != 9))) {
        line += "," + number(one.values[m]);
      }
    }
    lines.push_back(line + "," + number(one.p));
  }
  lines.emplace_back(79, '=');
}

}  // namespace

std::vector<OrderResult> results(const GenotypeData& data, const Run& run, LogFunction log) {
  restart_random();
  const std::vector<int> fold_of = run.mode < 2 ? deal(data, run) : std::vector<int>();
  std::vector<OrderResult> all;
  for (int order = run.min_order; order <= run.max_order; ++order) {
    all.push_back(run.mode < 2 ? cross_validated(data, run, order, fold_of, log)
                               : exhaustive(data, run, order));
  }
  return all;
}

std::vector<std::string> report(const GenotypeData& data, const Run& run,
                                const std::vector<OrderResult>& results) {
  std::vector<std::string> lines = head(run);
  int order = run.min_order;
  for (const OrderResult& result : results) {
    if (run.mode < 2) {
      cv_block(data, run, order++, result, lines);
    } else {
      exhaustive_block(data, run, order++, result, lines);
    }
  }
  return lines;
}

}  // namespace naive
