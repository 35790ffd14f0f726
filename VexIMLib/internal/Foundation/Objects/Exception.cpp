#include "VexIMLib/Foundation/Exception.h"

#include <utility>

namespace vexim {

Exception::Exception(std::string name, std::string reason)
    : name_(std::move(name)),
      reason_(std::move(reason)),
      what_(name_ + ": " + reason_) {}

Exception::~Exception() = default;

}  // namespace vexim
