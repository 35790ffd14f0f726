#include "VexIMLib/Foundation/Random.h"

#include <openssl/rand.h>

#include <array>
#include <random>
#include <utility>

#include "VexIMLib/internal/Foundation/Threads/SharedSlot.h"

namespace vexim {

namespace {

// One call for a kilobyte costs about as much as one for four bytes.
class SystemRandom final : public Random {
public:
    std::uint32_t next32() override {
        MutexLock lock(mutex_);
        if (used_ == words_.size()) refill();
        return std::exchange(words_[used_++], 0);
    }

private:
    void refill() VEXIM_REQUIRES(mutex_) {
        if (RAND_bytes(reinterpret_cast<unsigned char*>(words_.data()), sizeof(words_)) != 1) {
            // the crypto library has no entropy source, so ask the kernel
            std::random_device device;
            for (auto& word : words_) word = device();
        }
        used_ = 0;
    }

    Mutex mutex_;
    std::array<std::uint32_t, 256> words_ VEXIM_GUARDED_BY(mutex_) = {};
    std::size_t used_ VEXIM_GUARDED_BY(mutex_) = words_.size();
};

detail::SharedSlot<Random>& slot() {
    static auto& slot = *new detail::SharedSlot<Random>(Random::system());
    return slot;
}

}  // namespace

Random::~Random() = default;

std::shared_ptr<Random> Random::system() {
    static auto& random = *new std::shared_ptr<Random>(std::make_shared<SystemRandom>());
    return random;
}

std::shared_ptr<Random> Random::shared() { return slot().get(); }

void Random::setShared(std::shared_ptr<Random> random) {
    slot().set(random ? std::move(random) : system());
}

}  // namespace vexim
