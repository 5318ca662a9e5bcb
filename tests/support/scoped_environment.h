// Sets or clears one environment variable for the lifetime of the object, then restores it.
#pragma once

#include <stdlib.h>

#include <string>

namespace KIVMV {
namespace testing_support {

class ScopedEnvironment {
 public:
  // A null value clears the variable.
  ScopedEnvironment(const char* name, const char* value) : name_(name) {
    const char* old = getenv(name);
    hadValue_ = old != nullptr;
    if (hadValue_) old_ = old;
    if (value == nullptr) {
      unsetenv(name);
    } else {
      setenv(name, value, 1);
    }
  }
  ~ScopedEnvironment() {
    if (hadValue_) {
      setenv(name_.c_str(), old_.c_str(), 1);
    } else {
      unsetenv(name_.c_str());
    }
  }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
  std::string old_;
  bool hadValue_ = false;
};

}  // namespace testing_support
}  // namespace KIVMV
