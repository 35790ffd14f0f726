#pragma once

#include <cstdint>
#include <memory>

#include "VexIMLib/Foundation/Random.h"

namespace vexim::testing {

/// The same random numbers in every run. As long as it lives, it is the library's shared source.
class SeededRandom {
public:
    explicit SeededRandom(std::uint32_t seed = 1);
    ~SeededRandom();  // restores the system's source
    SeededRandom(const SeededRandom&) = delete;
    SeededRandom& operator=(const SeededRandom&) = delete;

    /// For what takes a source by reference.
    Random& random() const noexcept { return *source_; }

private:
    std::shared_ptr<Random> source_;
};

}  // namespace vexim::testing
