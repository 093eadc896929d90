// SPDX-License-Identifier: Apache-2.0
#include "cluster/job.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>

#include "cluster/remote_device.h"

namespace {

constexpr double kSilenceLimit = 60.0;

// Open MPI, MPICH and its kin, and Slurm with PMIx tell a process so that it is one of several.
constexpr const char* kLauncherVariables[] = {"OMPI_COMM_WORLD_SIZE", "PMI_SIZE", "PMIX_RANK"};

constexpr const char* kModule = "tavo-mpi.so";

// Beside the program where it is built, or where both are installed.
std::filesystem::path module_path() {
  std::error_code unknown;
  const std::filesystem::path folder = std::filesystem::read_symlink("/proc/self/exe", unknown).parent_path();
  const std::filesystem::path beside = folder / kModule;
  return std::filesystem::exists(beside, unknown) ? beside : folder / TAVO_MODULE_FOLDER / kModule;
}

}  // namespace

bool is_launched() {
  for (const char* variable : kLauncherVariables) {
    if (std::getenv(variable) != nullptr) {
      return true;
    }
  }
  return false;
}

std::unique_ptr<Link> join_job(Status* status) {
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
    return nullptr;
  }
  return std::make_unique<Link>(std::move(transport));
}

double silence_limit() {
  const char* text = std::getenv("TAVO_RANK_SILENCE");
  const double seconds = text != nullptr ? std::strtod(text, nullptr) : 0.0;
  return seconds > 0.0 ? seconds : kSilenceLimit;
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

void end_job(Link& link, int status) {
  if (link.is_abandoned()) {
    link.abort(status);
    return;
  }
  for (int rank = 1; rank < link.size(); ++rank) {
    link.send(rank, message_of(MessageKind::kEnd).take());
  }
  link.finish();
}
