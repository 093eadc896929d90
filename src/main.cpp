// SPDX-License-Identifier: Apache-2.0
//
// The entry point: options, device, driver, exit status.
#include <cstdio>
#include <exception>
#include <new>

#include "device/backends.h"
#include "device/worker.h"
#include "src/TFmMDR.h"
#include "src/notice.h"
#include "src/options.h"
#include "src/run_config.h"
#include "util/stop_signal.h"

namespace {

// Chooses the backend and the number of workers; null when none can be used; the reason has been
// printed.
Backend* query_device(const RunArguments& arguments) {
  Backend* backend = choose_backend(arguments.device);
  if (backend == nullptr) {
    std::puts("There is no available device for running CUDA architecture!");
    return nullptr;
  }
  if (const Status ready = backend->ready(); !ready.ok()) {
    notice("%s", ready.message().c_str());
    return nullptr;
  }
  g_cntDevCuda = gpu != -1 ? gpu : backend->device_count();
  g_useCuda = 1;
  const DeviceProperties properties = backend->properties(0);
  std::printf("CUDA is available [%d devs], %d regs, max thread count is %d, %d\n", g_cntDevCuda,
              properties.registers_per_block, g_cntBlockCuda, g_cntThreadCuda);
  std::printf("Shared memory %zu bytes\n", properties.shared_memory_per_block);
  return backend;
}

// The exit status of a program that did what it was asked for and has printed its last line: 1 when standard
// output did not take all of it.
int status_of_output(const char* rest_of_notice) {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
    return 0;
  }
  notice("standard output could not be written to its end%s", rest_of_notice);
  return 1;
}

int run(int argc, char** argv) {
  // Whoever reads standard output may leave: the result file is written all the same.
  ignore_write_signals();
  if (const std::optional<int> status = answer_question(argc, argv)) {
    return *status != 0 ? *status : status_of_output("");
  }
  RunArguments arguments;
  if (const std::optional<int> status = scan_arguments(argc, argv, &arguments)) {
    return *status;
  }
  if (const std::optional<int> status = check_arguments(arguments)) {
    return *status;
  }
  Backend* backend = query_device(arguments);
  if (backend == nullptr) {
    return 1;
  }
  if (g_cntBlockCuda < 1 || g_cntThreadCuda < 1) {
    std::puts("Invalid CUDA parameter!");
    return 1;
  }
  if (g_regrDistinct != 0) {
    std::puts("Distinct calculation mode in logistic regression");
  }
  std::printf("%d cv and start from %dth CV\n", cvfold, cv_start);
  notice("%s, %d worker%s, %s", backend->name().c_str(), g_cntDevCuda, g_cntDevCuda == 1 ? "" : "s",
         backend->properties(0).description.c_str());

  RunSettings settings;
  settings.input = szInput;
  settings.output = szOutput;
  settings.maximum_order = arguments.max_order;
  settings.minimum_order_minus_1 = arguments.min_order - 1;
  settings.folds = cvfold;
  settings.first_fold = cv_start;
  settings.mode = arguments.mode;
  settings.measure = selection;
  settings.missing = arguments.missing;
  settings.tie = arguments.tie;
  settings.top = arguments.top;
  settings.shuffling = arguments.shuffling;
  settings.seed = arguments.seed;
  settings.progress = arguments.progress;
  if (!arguments.precision.empty()) {
    settings.precision = arguments.precision;
  }
  settings.tidy = arguments.tidy;
  settings.checkpoint = arguments.checkpoint;
  settings.permutations = arguments.permutations;
  settings.stop_after = arguments.stop_after;

  catch_stop_signals();
  std::puts("Enter to MDR methods...");
  TFmMDR driver(*backend);
  if (const int status = driver.MdrMethod(settings); status != 0) {
    return status;
  }
  // Also after a file that could not be opened: the driver has said so.
  std::puts("------------------\n## tavo complete\n------------------");
  return status_of_output("; that says nothing about the result file");
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::bad_alloc&) {
    notice("out of memory");
  } catch (const std::exception& error) {
    notice("%s", error.what());
  }
  return 1;
}
