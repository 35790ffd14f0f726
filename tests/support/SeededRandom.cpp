#include "support/SeededRandom.h"

#include <mutex>
#include <random>

namespace vexim::testing {

namespace {

class Source final : public Random {
public:
    explicit Source(std::uint32_t seed) : engine_(seed) {}
    std::uint32_t next32() override {
        std::lock_guard lock(mutex_);
        return static_cast<std::uint32_t>(engine_());
    }

private:
    std::mutex mutex_;
    std::mt19937 engine_;
};

}  // namespace

SeededRandom::SeededRandom(std::uint32_t seed) : source_(std::make_shared<Source>(seed)) {
    Random::setShared(source_);
}

SeededRandom::~SeededRandom() { Random::setShared(nullptr); }

}  // namespace vexim::testing
