// SPDX-License-Identifier: Apache-2.0
//
// What a rank does for another never ends its process by an exception: the other is told.
#pragma once

#include <exception>
#include <new>
#include <stdexcept>

#include "util/status.h"

// step(), a Status, or the failure that its exception stands for.
template <typename Step>
Status without_exceptions(Step step) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    return Status::failure("out of memory");
  } catch (const std::length_error&) {
    return Status::failure("out of memory");  // more than a vector ever holds
  } catch (const std::exception& error) {
    return Status::failure(error.what());
  }
}
