// SPDX-License-Identifier: Apache-2.0
//
// The report of a cross-validated run: for each order the best combinations over all folds, then every fold's
// list.
#include "src/TFmMDR.h"
#include "src/number_text.h"
#include "src/report_head.h"

namespace {

constexpr const char* kBestHeader[] = {
    "Rank,Best_Combi,WCVC,Train_BA,Test_BA,Train_Chisq,Test_Chisq,Train_Gamma,Test_Gamma,Train_Tau_b,Test_"
    "Tau_b,"
    "Train_Tau_c,Test_Tau_c,Train_Somers_dx,Test_Somers_dx,Train_Somers_dy,Test_Somers_dy,Train_nmi,Test_nmi,"
    " "
    "Train_nmi, Test_lr",
    "Rank,Best_Combi,WCVC,Aver_Train_BA,Aver_Test_BA,Aver_Train_Chisq,Aver_Test_Chisq,Aver_Train_Gamma,"
    "Aver_Test_Gamma,Aver_Train_Tau_b,Aver_Test_Tau_b,Aver_Train_Tau_c,Aver_Test_Tau_c,Aver_Train_Somers_dx,"
    "Aver_Test_Somers_dx,Aver_Train_Somers_dy,Aver_Test_Somers_dy,Aver_Train_nmi, Aver_Test_nmi, "
    "Aver_Train_lr, "
    "Aver_Test_lr"};

constexpr const char* kFoldHeader[] = {
    "CV,Best_Combi,Train_Acc,Test_Acc,Train_BA,Test_BA,Train_Chisq,Test_Chisq,Train_Gamma,Test_Gamma,Train_"
    "Tau_b,"
    "Test_Tau_b,Train_Tau_c,Test_Tau_c,Train_Somers_dx,Test_Somers_dx,Train_Somers_dy,Test_Somers_dy,Train_"
    "wBA1,"
    "Test_wBA1,Train_wBA2,Test_wBA2,Train_wBA3,Test_wBA3,Train_wBA4,Test_wBA4,Train_wBA5,Test_wBA5,Train_"
    "wBA6,"
    "Test_wBA6",
    "CV,Best_Combi,Train_Acc,Test_Acc,Train_BA,Test_BA,Train_Chisq,Test_Chisq,Train_Gamma,Test_Gamma,Train_"
    "Tau_b,"
    "Test_Tau_b,Train_Tau_c,Test_Tau_c,Train_Somers_dx,Test_Somers_dx,Train_Somers_dy,Test_Somers_dy,Train_"
    "nmi, "
    "Test_nmi, Train_lr, Test_lr"};

// The measures of a best-combinations row.
constexpr int kSummaryMeasures[] = {0, 2, 3, 4, 5, 6, 7, 8, 9};

void write_best(MdrWriter& writer, const MDRResult& result, const std::vector<std::string>& names) {
  for (size_t rank = 0; rank < result.best_snps.size(); ++rank) {
    std::string line = std::to_string(rank + 1) + "," + combination_name(result.best_snps[rank], names) +
                       "," + number_text(result.weighted_cvc[rank]);
    for (const int measure : kSummaryMeasures) {
      const MeasurePair& pair = result.measures[static_cast<size_t>(measure)];
      line += "," + number_text(pair.training[rank]) + "," + number_text(pair.testing[rank]);
    }
    writer.WriteLine(line);
  }
}

// In mode 1 every fold has as many rows as there are ranked combinations: a shorter list is filled up with
// rows of zeros, a longer one is cut. In mode 0 every fold has its own number of rows.
void write_folds(MdrWriter& writer, int order, int mode, const MDRResult& result,
                 const std::vector<std::string>& names) {
  const KeptCombination empty{"", std::vector<int>(static_cast<size_t>(order), 0),
                              std::vector<double>(kRecordSize, 0.0)};
  const std::span<const int> measures =
      mode == 0 ? std::span<const int>(kMode0FoldMeasures) : std::span<const int>(kMode1FoldMeasures);
  for (size_t fold = 0; fold < result.kept.size(); ++fold) {
    const std::vector<KeptCombination>& list = result.kept[fold];
    const size_t rows = mode == 0 ? list.size() : static_cast<size_t>(result.top_count);
    for (size_t row = 0; row < rows; ++row) {
      const KeptCombination& kept = row < list.size() ? list[row] : empty;
      writer.WriteLine(std::to_string(fold + 1) + "," + combination_name(kept.snps, names) +
                       fold_values_text(kept.record, measures));
    }
  }
}

}  // namespace

Status TFmMDR::WriteResultCV(const std::string& path, double elapsed_seconds, int mode,
                             const std::vector<std::string>& names, const ResultArray& results) {
  MdrWriter writer;
  if (!writer.SaveWhenComplete(path.c_str())) {
    return writer.Close();
  }
  const MDRResult& first = *results.front();
  write_report_head(writer, path, elapsed_seconds, first.groups);
  const size_t layout = mode == 0 ? 0 : 1;
  for (int order = first.minimum_order_minus_1 + 1; order <= first.maximum_order; ++order) {
    const MDRResult& result = *results[static_cast<size_t>(order) - 1];
    const std::string number = std::to_string(order);
    writer.WriteLine("<<" + number + "-Order Best Combination Sets>>");
    writer.WriteLine(kBestHeader[layout]);
    write_best(writer, result, names);
    writer.WriteLine(kSectionEnd);
    writer.WriteLine("<" + number + "-Order Combinations of SNPs>");
    writer.WriteLine(kFoldHeader[layout]);
    write_folds(writer, order, mode, result, names);
    writer.WriteLine(kSectionEnd);
  }
  return writer.Close();
}
