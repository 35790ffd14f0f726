#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <type_traits>
#include <utility>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

/// The domain of the errors that the async styles add to those of the operations.
inline constexpr const char* kCallErrorDomain = "VXIMCallErrorDomain";
/// The codes of that domain.
enum CallErrorCode : std::int64_t {
    /// The library let go of the completion without calling it: another login began, the client was
    /// released, …
    CallErrorAbandoned = 1,
};

/// A failure of the world where a style has no other place for it: thrown by `std::future::get` and
/// `Result::orThrow`.
class VEXIM_EXPORT Failure : public std::exception {
public:
    /// `error` must not be nullptr.
    explicit Failure(ErrorPtr error)
        : error_(std::move(error)),
          what_(error_->localizedDescription()) {}
    /// Never nullptr.
    const ErrorPtr& error() const noexcept { return error_; }
    /// The error's description.
    const char* what() const noexcept override { return what_.c_str(); }

private:
    ErrorPtr error_;
    std::string what_;
};

/// What an operation's completion received: `co_await` gives one.
///
///     auto [friends, error] = co_await vexim::call(…);
template <class T>
struct Result {
    T value{};       ///< with an error: false, nil, nullptr or nullopt
    ErrorPtr error;  ///< nullptr is success, or a failure without an error

    /// Whether there is no error and something to show: true, an object, a list. (A few operations
    /// fail without an error.) A `Value` may be nil.
    explicit operator bool() const {
        if constexpr (std::is_same_v<T, Value>) {
            return !error;
        } else {
            return !error && static_cast<bool>(value);
        }
    }
    /// The value; throws `Failure` when there is an error.
    const T& orThrow() const& {
        if (error) throw Failure(error);
        return value;
    }
    T orThrow() && {
        if (error) throw Failure(std::move(error));
        return std::move(value);
    }
};

}  // namespace vexim
