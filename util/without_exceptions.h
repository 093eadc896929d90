// SPDX-License-Identifier: Apache-2.0
//
// Exceptions as failures, where a process or a thread would end by them: the reason is told.
#pragma once

#include <exception>
#include <new>
#include <stdexcept>
#include <system_error>

#include "util/status.h"

// step(), a Status, or the failure that its exception stands for.
template <typename Step>
Status without_exceptions(Step step) {
  try {
    try {
      return step();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::length_error&) {
      throw std::bad_alloc();  // more than a vector ever holds
    } catch (const std::system_error& error) {
      // What a thread that cannot be had is reported by; others, of files, speak for themselves.
      const bool is_thread = error.code() == std::errc::resource_unavailable_try_again;
      return Status::failure(is_thread ? "out of memory or threads" : error.what());
    } catch (const std::exception& error) {
      return Status::failure(error.what());
    }
  } catch (const std::bad_alloc&) {
    // Also where there is no memory for one of the texts above; this one is so short that it needs none.
    return Status::failure("out of memory");
  }
}
