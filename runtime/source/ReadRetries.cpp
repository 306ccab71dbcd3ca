#include "source/ReadRetries.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace kv::runtime {

namespace {

constexpr int kPassing[] = {EIO, EAGAIN, EBUSY, ENOBUFS, ENOMEM, ETIMEDOUT};

thread_local ReadRetries* inForce = nullptr;

}  // namespace

ReadRetries::ReadRetries(int most) noexcept : left_(most), outer_(inForce) { inForce = this; }

ReadRetries::~ReadRetries() { inForce = outer_; }

bool ReadRetries::take(int error) noexcept {
  if (inForce == nullptr || inForce->left_ == 0 ||
      std::ranges::find(kPassing, error) == std::end(kPassing)) {
    return false;
  }
  --inForce->left_;
  return true;
}

}  // namespace kv::runtime
