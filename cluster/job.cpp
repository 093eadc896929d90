// SPDX-License-Identifier: Apache-2.0
#include "cluster/job.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

#include "cluster/environment.h"
#include "cluster/remote_device.h"
#include "util/stop_signal.h"

namespace {

// Seconds.
constexpr const char* kSilenceVariable = "TAVO_RANK_SILENCE";
constexpr double kSilenceLimit = 60.0;
constexpr double kShortestLimit = 0.1;
constexpr double kLongestLimit = 1e6;

constexpr const char* kModule = "tavo-mpi.so";

// Beside the program where it is built, or where both are installed.
std::filesystem::path module_path() {
  std::error_code unknown;
  const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", unknown).parent_path();
  const std::filesystem::path beside = folder / kModule;
  return std::filesystem::exists(beside, unknown) ? beside : folder / TAVO_MODULE_FOLDER / kModule;
}

}  // namespace

std::unique_ptr<Link> join_job(int size, Status* status) {
  const std::filesystem::path path = module_path();
  std::error_code unknown;
  if (!std::filesystem::exists(path, unknown)) {
    *status = Status::failure("started by an MPI launcher, but this program was built without MPI");
    return nullptr;
  }
  // The parts that MPI loads by itself look for its symbols among all.
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
  void* symbol = module != nullptr ? dlsym(module, kOpenTransport) : nullptr;
  if (symbol == nullptr) {
    const char* error = dlerror();
    *status = Status::failure(std::string("MPI cannot be used: ") + (error != nullptr ? error : "no reason"));
    return nullptr;
  }
  char reason[256] = "";
  std::unique_ptr<Transport> transport(reinterpret_cast<OpenTransport*>(symbol)(reason, sizeof(reason)));
  if (transport == nullptr) {
    *status = Status::failure(std::string("MPI cannot be used: ") + reason);
    return nullptr;
  }
  if (transport->size() == 1) {
    transport->finish();
    if (size > 1) {
      *status = Status::failure("the launcher has started " + std::to_string(size) +
                                " processes, but MPI knows of one: they are of different MPI libraries");
    }
    return nullptr;
  }
  return std::make_unique<Link>(std::move(transport));
}

Status silence_limit(double* seconds) {
  *seconds = kSilenceLimit;
  const char* text = std::getenv(kSilenceVariable);
  if (text == nullptr) {
    return {};
  }
  const std::optional<double> wanted = environment_number(kSilenceVariable, kShortestLimit, kLongestLimit);
  if (!wanted) {
    return Status::failure(std::string(kSilenceVariable) + " is " + text +
                           ", expected seconds from 0.1 to 1000000");
  }
  *seconds = *wanted;
  return {};
}

Status configure_ranks(Link& link, const RankConfig& config, std::vector<std::string>* descriptions) {
  const Bytes message = message_of(config);
  for (int rank = 1; rank < link.size(); ++rank) {
    link.send(rank, message);
  }
  Status failure;
  for (int rank = 1; rank < link.size(); ++rank) {
    Status status = receive_text(link, rank, config.silence_limit, &descriptions->emplace_back());
    failure = failure.ok() ? status : failure;
  }
  return failure;
}

Status dismiss_ranks(Link& link) {
  if (link.is_abandoned()) {
    return {};
  }
  for (int rank = 1; rank < link.size(); ++rank) {
    link.send(rank, message_of(MessageKind::kEnd).take());
  }
  double limit = kSilenceLimit;
  // What is wrong with it has been said.
  (void)silence_limit(&limit).ok();
  Status status;
  for (int rank = 1; rank < link.size() && status.ok(); ++rank) {
    status = receive_outcome(link, rank, limit);
  }
  // A signal has been answered for by whoever noticed it first, or came when all was done.
  return stop_signal() == 0 ? status : Status();
}

void end_job(Link& link, int status) {
  // Who has been asked to stop waits for nobody.
  if (link.is_abandoned() || stop_signal() != 0) {
    link.abort(status);
  } else {
    link.finish();
  }
}
