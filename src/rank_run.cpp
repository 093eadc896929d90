// SPDX-License-Identifier: Apache-2.0
#include "src/rank_run.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <set>

#include "cluster/job.h"
#include "cluster/servant.h"
#include "device/backends.h"
#include "device/worker.h"
#include "src/FileIO.h"
#include "src/notice.h"
#include "src/run_config.h"
#include "util/checksum.h"

namespace {

Backend* choose_for_rank(const std::string& choice, Status* status) {
  Backend* backend = choose_backend(choice);
  if (backend == nullptr) {
    *status = Status::failure("there is no device for --device " + choice);
    return nullptr;
  }
  *status = backend->ready();
  return status->ok() ? backend : nullptr;
}

// As rank 0 has read them: the reader looks at these variables.
Status read_words(const SharedInput& input, std::vector<uint32_t>* words) {
  std::vector<unsigned char> left_out(input.left_out_lines.begin(), input.left_out_lines.end());
  g_regression = input.regression;
  g_transpose = input.transposed;
  g_covMissing = input.has_lines ? left_out.data() : nullptr;
  g_covLines = static_cast<int>(left_out.size());
  MdrReader reader;
  const bool opened = reader.Open(input.path.c_str(), false, input.transposed);
  g_covMissing = nullptr;
  if (!opened) {
    return Status::failure("cannot read " + input.path + ", which --shared-input says that every rank can");
  }
  *words = reader.words();
  return {};
}

SharedInput shared_input() {
  SharedInput input;
  input.path = szInput;
  input.transposed = g_transpose;
  input.regression = g_regression;
  input.has_lines = g_covMissing != nullptr;
  if (input.has_lines) {
    input.left_out_lines.assign(g_covMissing, g_covMissing + g_covLines);
  }
  return input;
}

// "rank 1: CPU, 2 workers, avx512", or "ranks 1 to 3: ... each"; a line for each stretch of ranks that are
// alike.
void tell_ranks(const Link& link, const std::vector<std::string>& descriptions) {
  std::set<std::string> hosts;
  for (int rank = 0; rank < link.size(); ++rank) {
    hosts.insert(link.host(rank));
  }
  notice("%d ranks on %zu host%s", link.size(), hosts.size(), hosts.size() == 1 ? "" : "s");
  for (size_t first = 0; first < descriptions.size();) {
    size_t end = first + 1;
    while (end < descriptions.size() && descriptions[end] == descriptions[first]) {
      ++end;
    }
    if (end - first == 1) {
      notice("rank %zu: %s", first + 1, descriptions[first].c_str());
    } else {
      notice("ranks %zu to %zu: %s each", first + 1, end, descriptions[first].c_str());
    }
    first = end;
  }
}

}  // namespace

std::string rank_identity(int argc, char** argv) {
  std::ifstream program("/proc/self/exe", std::ios::binary);
  std::vector<char> bytes(1 << 16);
  uint32_t sum = 0;
  do {
    program.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    sum = checksum(bytes.data(), static_cast<size_t>(program.gcount()), sum);
  } while (program);
  std::string identity = std::to_string(sum);
  for (int i = 1; i < argc; ++i) {
    identity += '\n';
    identity += argv[i];
  }
  return identity;
}

int run_as_servant(Link& link, const std::string& identity) {
  // What the reader and others say there is rank 0's to say.
  if (std::freopen("/dev/null", "w", stdout) == nullptr) {
    notice("%s: /dev/null cannot be opened", link.name(link.rank()).c_str());
  }
  // Rank 0 ends the job, and says why. A launcher that stops all ranks for the end of one lets it do so.
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(signal, SIG_IGN);
  }
  const Status status = serve(link, {choose_for_rank, read_words, identity});
  if (!status.ok()) {
    notice("%s: %s", link.name(link.rank()).c_str(), status.message().c_str());
    link.abort(1);
    return 1;
  }
  link.finish();
  return 0;
}

std::unique_ptr<ClusterBackend> gather_ranks(Link& link, Backend& local, const RunArguments& arguments,
                                             const std::string& identity) {
  link.tell_failure([](const std::string& failure) { notice("%s", failure.c_str()); });
  RankConfig config;
  config.identity = identity;
  config.device = arguments.device;
  config.workers = gpu;
  Status status = silence_limit(&config.silence_limit);
  std::vector<std::string> descriptions;
  if (status.ok()) {
    status = configure_ranks(link, config, &descriptions);
  }
  if (!status.ok()) {
    notice(status);
    return nullptr;
  }
  tell_ranks(link, descriptions);
  auto backend = std::make_unique<ClusterBackend>(local, link, g_cntDevCuda, config.silence_limit);
  if (arguments.shared_input != 0) {
    backend->share_input(shared_input());
  }
  return backend;
}
