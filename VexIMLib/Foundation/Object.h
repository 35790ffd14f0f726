#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

class Class;
class Invocation;
class MethodSignature;
class Selector;

namespace detail {
class KeyValueObservers;
}

/// The key that `create` turns: only it can construct a `Creation`, so objects are made by their
/// factories alone.
class Creation {
    Creation() = default;
    template <class T, class... Arguments>
    friend std::shared_ptr<T> create(Arguments&&... arguments);
};

/// Allocates a T (constructed with a `Creation`) and runs its virtual `initialise(arguments…)`, in
/// which virtual calls and `shared_from_this` work. nullptr when `initialise` refuses by answering
/// false.
template <class T, class... Arguments>
std::shared_ptr<T> create(Arguments&&... arguments) {
    auto object = std::make_shared<T>(Creation{});
    if (!object->initialise(std::forward<Arguments>(arguments)...)) return nullptr;
    return object;
}

/// What an observer of a key hears.
struct KeyValueChange {
    std::string key;  // as registered
    Value newValue;   // nil when the object cannot read the key
};

/// The root of the library's classes: shared by reference, compared by identity, observable by key.
/// Unless a class says otherwise, an object is used from one thread at a time.
class VEXIM_EXPORT Object : public std::enable_shared_from_this<Object> {
public:
    explicit Object(Creation) noexcept;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object();

    /// The runtime's record of this object's class: its name, superclass and declared properties.
    virtual const Class& runtimeClass() const;
    /// The root class's record.
    static const Class& staticClass();
    /// Whether the object's class is `cls` or derives from it.
    bool isKindOfClass(const Class& cls) const noexcept;

    // Messages by name (see Foundation/Runtime). C++ callers use the typed functions; these serve
    // what is known only by name.
    /// Whether the class has a method of that name. A dynamic property's accessors are no methods:
    /// the answer is no.
    bool respondsToSelector(Selector selector) const noexcept;
    /// The types of the message, or nullptr when this object does not understand it.
    virtual std::shared_ptr<const MethodSignature> methodSignatureForSelector(
        Selector selector) const;
    /// Receives each message that the class has no method for, but that
    /// `methodSignatureForSelector` knows.
    virtual void forwardInvocation(Invocation& invocation);
    /// Sends a message. `arguments` are unboxed by the types of the message (missing ones are 0 or
    /// nil, those beyond are ignored), the result is boxed. Raises NSInvalidArgumentException when
    /// the message is not understood, when an argument does not fit its type, or when a type has no
    /// boxed form.
    Value perform(Selector selector, std::initializer_list<Value> arguments = {});
    /// Raises NSInvalidArgumentException: "-[VXIMUser foo]: unrecognized selector sent to instance
    /// 0x5580…".
    [[noreturn]] void doesNotRecognizeSelector(Selector selector) const;

    /// "<VXIMUser: 0x5580…>"; classes with contents add them.
    virtual std::string description() const;
    /// Identity, unless a class compares contents.
    virtual bool isEqual(const Object& other) const;
    /// A copy, for classes that offer one; others raise NSInvalidArgumentException.
    virtual std::shared_ptr<Object> copy() const;

    /// The value under a key, for observers and key paths; the root class knows none and answers
    /// nil.
    virtual Value valueForKey(std::string_view key) const;

    // Key-value observing. Callable from any thread; a handler runs on the thread that makes the
    // change, with no lock held.
    using ChangeHandler = std::function<void(Object& object, const KeyValueChange& change)>;
    /// `observer` is the registration's identity and is held weakly: once it is gone nothing is
    /// called any more.
    void addObserver(const std::shared_ptr<void>& observer, std::string key, ChangeHandler handler);
    void removeObserver(const void* observer, std::string_view key);
    void willChangeValueForKey(std::string_view key);
    /// Calls the handlers registered for `key`, in registration order.
    void didChangeValueForKey(std::string_view key);

protected:
    /// shared_from_this as the derived class.
    template <class T>
    std::shared_ptr<T> sharedAs() {
        return std::static_pointer_cast<T>(shared_from_this());
    }

    /// What the root's `create` runs; derived classes declare their own with their own arguments.
    bool initialise() { return true; }
    template <class T, class... Arguments>
    friend std::shared_ptr<T> create(Arguments&&... arguments);

private:
    std::atomic<detail::KeyValueObservers*> observers_{nullptr};  // made by the first observer
};

}  // namespace vexim
