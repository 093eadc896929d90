// SPDX-License-Identifier: Apache-2.0
//
// The run configuration: process-wide variables that the main thread writes while it reads the command line,
// and that everyone reads afterwards. (The worker protocol's variables are in device/worker.h.)
#pragma once

#include <cstdint>

inline constexpr int kPathSize = 256;     // bytes of a path, its NUL included
inline constexpr int kMaxArguments = 32;  // of the option table, the program name included
inline constexpr int kMaxCovariates = 10;
inline constexpr int kCovariateLabelSize = 256;

// The status of a process whose device failed: exit(-1) as the system reports it.
inline constexpr int kDeviceFailure = 255;

enum RegressionKind : int { kNoRegression = 0, kLogisticRegression = 1, kLinearRegression = 2 };

extern char szInput[kPathSize];
extern char szOutput[kPathSize];
extern char szScore[kPathSize];
extern char g_covFileName[kPathSize];
extern int g_transpose;      // non-zero: the genotype file is in the transposed layout
extern int g_regrDistinct;   // non-zero: distinct calculation mode of logistic regression
extern int g_regression;     // a RegressionKind
extern int g_logisIter;      // iteration limit of logistic regression, -1 when not given
extern int cvfold;           // number of cross-validation folds
extern int cv_start;         // first fold to compute
extern int gpu;              // workers asked for, -1: every device
extern int selection;        // ranking measure, -1 when not given
extern int g_cntThreadCuda;  // threads per block
extern int g_cntBlockCuda;   // blocks per launch
extern int g_useCuda;        // 1 once a device was found

// Positions in the argument list of option values as typed, -1 when the option was not given.
extern int g_combOrder;
extern int g_selidx;
extern int g_misidx;
extern int g_tieidx;
extern int g_topidx;
extern int g_shuidx;

extern int g_argc;
extern char** g_argv;  // [g_argc], the process's own argument list

// Covariates: g_covValues[line * g_covCnt + j]; g_covMissing[line] is 1 when the line lacks a value; both
// have g_covLines lines. Null without a covariate file.
extern int g_covCnt;
extern int g_covLines;
extern char g_covLabel[kMaxCovariates][kCovariateLabelSize];
extern float* g_covValues;
extern unsigned char* g_covMissing;

// A value of the option table as a number: base 10, what follows a number is ignored, no number is 0, and
// what does not fit is the nearest that does.
int integer_of(const char* text);

// The text of an option's value, or otherwise when its position is -1.
const char* typed_value(int position, const char* otherwise);
