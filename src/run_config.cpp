// SPDX-License-Identifier: Apache-2.0
#include "src/run_config.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

char szInput[kPathSize] = "";
char szOutput[kPathSize] = "";
char szScore[kPathSize] = "";
char g_covFileName[kPathSize] = "";
int g_transpose = 0;
int g_regrDistinct = 0;
int g_regression = kNoRegression;
int g_logisIter = -1;
int cvfold = 10;
int cv_start = 0;
int gpu = -1;
int selection = -1;
int g_cntThreadCuda = 0;
int g_cntBlockCuda = 0;
int g_useCuda = 0;

int g_combOrder = -1;
int g_selidx = -1;
int g_misidx = -1;
int g_tieidx = -1;
int g_topidx = -1;
int g_shuidx = -1;

int g_argc = 0;
char** g_argv = nullptr;

int g_covCnt = 0;
int g_covLines = 0;
char g_covLabel[kMaxCovariates][kCovariateLabelSize] = {};
float* g_covValues = nullptr;
unsigned char* g_covMissing = nullptr;

int integer_of(const char* text) {
  const long number = std::strtol(text, nullptr, 10);
  return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

const char* typed_value(int position, const char* otherwise) {
  return position < 0 ? otherwise : g_argv[position];
}
