// SPDX-License-Identifier: Apache-2.0
//
// The entry point: options, device, driver, exit status.
#include <cstdio>
#include <optional>
#include <string>

#include "cluster/job.h"
#include "cluster/launcher.h"
#include "device/backends.h"
#include "device/worker.h"
#include "src/TFmMDR.h"
#include "src/notice.h"
#include "src/options.h"
#include "src/rank_run.h"
#include "src/run_config.h"
#include "util/stop_signal.h"
#include "util/without_exceptions.h"

namespace {

// Chooses the backend and the number of workers; null when none can be used; the reason has been
// printed. link: to the other ranks, or null.
Backend* query_device(const RunArguments& arguments, const Link* link) {
  Backend* backend = choose_backend(arguments.device);
  if (backend == nullptr) {
    std::puts("There is no available device for running CUDA architecture!");
    return nullptr;
  }
  if (const Status ready = backend->ready(); !ready.ok()) {
    notice("%s", ready.message().c_str());
    return nullptr;
  }
  g_cntDevCuda = gpu != -1         ? gpu
                 : link != nullptr ? workers_of_rank(link->local_rank(), link->local_size(), *backend)
                                   : backend->device_count();
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

// link: to the other ranks of a job, of which this is rank 0, or null.
int run(int argc, char** argv, Link* link) {
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
  Backend* backend = query_device(arguments, link);
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

  std::unique_ptr<ClusterBackend> cluster;
  if (link != nullptr) {
    cluster = gather_ranks(*link, *backend, arguments, rank_identity(argc, argv));
    if (cluster == nullptr) {
      return kDeviceFailure;
    }
    backend = cluster.get();
  } else if (arguments.shared_input != 0) {
    notice("a run of one process has no use for --shared-input");
  }

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

// What run() returns, or nothing where it throws: that is said. who: "rank 2: ", or nothing.
template <typename Run>
std::optional<int> run_guarded(const std::string& who, Run run) {
  std::optional<int> exit_status;
  const Status status = without_exceptions([&] {
    exit_status = run();
    return Status();
  });
  if (!status.ok()) {
    notice("%s%s", who.c_str(), status.message().c_str());
  }
  return exit_status;
}

// Rank 0 of a job.
int run_as_first(Link& link, int argc, char** argv) {
  int exit_status = run(argc, argv, &link);
  std::fflush(stdout);
  if (const Status status = dismiss_ranks(link); !status.ok()) {
    notice(status);
    exit_status = exit_status != 0 ? exit_status : kDeviceFailure;
  } else if (exit_status == 0 && stop_signal() != 0) {
    exit_status = stopped_status(stop_signal());
  }
  end_job(link, exit_status);
  return exit_status;
}

// One rank of a job that an MPI launcher has started.
int run_launched(const LaunchedAs& launched, int argc, char** argv) {
  Status status;
  const std::unique_ptr<Link> link = join_job(launched.size, &status);
  if (!status.ok()) {
    if (launched.rank == 0) {
      notice(status);
    }
    return 1;
  }
  if (link == nullptr) {
    return run(argc, argv, nullptr);
  }
  const std::optional<int> exit_status =
      run_guarded(link->rank() == 0 ? "" : link->name(link->rank()) + ": ", [&] {
        return link->rank() == 0 ? run_as_first(*link, argc, argv)
                                 : run_as_servant(*link, rank_identity(argc, argv));
      });
  if (!exit_status) {
    // Nobody knows any more what the ranks are about, and they may wait for what does not come.
    link->abort(1);
  }
  return exit_status.value_or(1);
}

}  // namespace

int main(int argc, char** argv) {
  // A launcher of one process needs no MPI, and scripts under it may start several programs one after the
  // other.
  const LaunchedAs launched = launched_as();
  if (launched.size == 1) {
    return run_guarded("", [&] { return run(argc, argv, nullptr); }).value_or(1);
  }
  return run_guarded("rank " + std::to_string(launched.rank) + ": ",
                     [&] { return run_launched(launched, argc, argv); })
      .value_or(1);
}
