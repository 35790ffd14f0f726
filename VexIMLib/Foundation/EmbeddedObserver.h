#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

class Object;
class Value;
struct Notification;

namespace detail {

class EmbeddedObservers;

/// A registration with the default notification centre, stored inside its observer. Use it in
/// objects of which there may be very many: it allocates no memory, and adding and removing it
/// costs almost nothing. It receives the notifications that contain its value, in order with the
/// centre's other observers.
class VEXIM_EXPORT EmbeddedObserver {
public:
    /// What the observers of one class receive. Constant, and never destroyed.
    struct Kind {
        std::array<std::string_view, 2> names;  // notification names
        // the key of the value in their user information
        std::string_view key;
        void (*hear)(Object& observer, const Notification& notification);
    };

    EmbeddedObserver() noexcept = default;
    EmbeddedObserver(const EmbeddedObserver&) = delete;
    EmbeddedObserver& operator=(const EmbeddedObserver&) = delete;
    /// Make it its object's last member, so that it unregisters before anything else is destroyed.
    ~EmbeddedObserver() {
        if (kind_ != nullptr) leave();
    }

    /// Registers it, after all other observers. `object` contains this observer, and `value` must
    /// not change. A value that is neither a string nor a number never matches.
    void join(const Kind& kind, Object& object, const Value& value);

private:
    friend class EmbeddedObservers;
    /// An entry in a bucket's chain.
    struct Link {
        EmbeddedObserver* next = nullptr;
        EmbeddedObserver** at = nullptr;  // what points here
    };
    void leave() noexcept;

    // Constant while it is registered.
    const Kind* kind_ = nullptr;
    Object* object_ = nullptr;
    const Value* value_ = nullptr;
    std::size_t hash_ = 0;  // of the value
    std::uint64_t number_ = 0;
    // Used by the centre, under its lock.
    Link byValue_;
    Link byAddress_;
    std::atomic<std::uint8_t> silenced_{0};  // a bit for each of the names that were removed
};

}  // namespace detail
}  // namespace vexim
