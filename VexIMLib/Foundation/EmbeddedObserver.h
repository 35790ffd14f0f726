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

/// A registration with the default notification centre that lives in its observer, an object of
/// which there may be very many: it takes no memory from the heap, and coming and going costs next
/// to nothing. It hears the notifications that hold its value, in its place among the centre's
/// other observers.
class VEXIM_EXPORT EmbeddedObserver {
public:
    /// What the observers of one class hear. Constant, and never destroyed.
    struct Kind {
        std::array<std::string_view, 2> names;  // of notifications
        // under which their user information holds the value
        std::string_view key;
        void (*hear)(Object& observer, const Notification& notification);
    };

    EmbeddedObserver() noexcept = default;
    EmbeddedObserver(const EmbeddedObserver&) = delete;
    EmbeddedObserver& operator=(const EmbeddedObserver&) = delete;
    /// To be its object's last member, so that it leaves before anything else goes.
    ~EmbeddedObserver() {
        if (kind_ != nullptr) leave();
    }

    /// Begins to hear, as the youngest of all observers. `object` holds this, and `value` stays as
    /// it is. What is neither a string nor a number is never heard of.
    void join(const Kind& kind, Object& object, const Value& value);

private:
    friend class EmbeddedObservers;
    /// A place in a chain of one bucket.
    struct Link {
        EmbeddedObserver* next = nullptr;
        EmbeddedObserver** at = nullptr;  // what points here
    };
    void leave() noexcept;

    // Constant while it has joined.
    const Kind* kind_ = nullptr;
    Object* object_ = nullptr;
    const Value* value_ = nullptr;
    std::size_t hash_ = 0;  // of the value
    std::uint64_t number_ = 0;
    // The centre's, under its lock.
    Link byValue_;
    Link byAddress_;
    std::atomic<std::uint8_t> silenced_{0};  // a bit for each of the names that were removed
};

}  // namespace detail
}  // namespace vexim
