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

/// Domain of the errors that the async styles add to those of the operations.
inline constexpr const char* kCallErrorDomain = "VXIMCallErrorDomain";
/// Codes in `kCallErrorDomain`.
enum CallErrorCode : std::int64_t {
    /// The library released the completion without calling it: another login began, the client was
    /// released, …
    CallErrorAbandoned = 1,
};

/// An error as an exception. `std::future::get` and `Result::orThrow` throw it. It is a failure of
/// the network, a file or the service, so a program should expect it. (`Exception` is a mistake in
/// the program.)
///
///     catch (const vexim::Failure& failure) {
///         if (vexim::isTemporary(failure.error())) tryAgainLater();
///     }
class VEXIM_EXPORT Failure : public std::exception {
public:
    /// Wraps `error`, which must not be nullptr. Applications that write their own operations may
    /// throw one, too.
    explicit Failure(ErrorPtr error)
        : error_(std::move(error)),
          what_(error_->localizedDescription()) {}
    /// The error with its domain and code. Never nullptr.
    const ErrorPtr& error() const noexcept { return error_; }
    /// The error's description, in UTF-8. Valid as long as the exception lives.
    const char* what() const noexcept override { return what_.c_str(); }

private:
    ErrorPtr error_;
    std::string what_;  // a copy, because `what` returns a pointer into it
};

/// What an operation's completion received. `co_await` returns one. A value: copy it, keep it, move
/// it to another thread.
///
///     auto [friends, error] = co_await vexim::call(…);
///     if (error) std::cerr << error->localizedDescription();
template <class T>
struct Result {
    /// What the operation returned; false, nil, nullptr or nullopt if there is an error.
    T value{};
    /// Why it failed; nullptr after a success, or a failure without an error.
    ErrorPtr error;

    /// True if there is no error and a value: true, an object, a list. (A few operations fail
    /// without an error.) A `Value` may be nil.
    ///
    ///     if (auto sent = co_await vexim::call(…)) …
    ///
    /// An empty list is a value, so it counts as true.
    explicit operator bool() const {
        if constexpr (std::is_same_v<T, Value>) {
            return !error;
        } else {
            return !error && static_cast<bool>(value);
        }
    }
    /// Returns the value, or throws `Failure` if there is an error. A failure without an error does
    /// not throw: it returns false, nullptr or nullopt, as the operation's page says.
    const T& orThrow() const& {
        if (error) throw Failure(error);
        return value;
    }
    /// The same for a temporary result: moves the value out.
    T orThrow() && {
        if (error) throw Failure(std::move(error));
        return std::move(value);
    }
};

}  // namespace vexim
