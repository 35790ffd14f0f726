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

/// Passed to constructors. Only `create` can make one, so only factories can make objects.
class Creation {
    Creation() = default;
    template <class T, class... Arguments>
    friend std::shared_ptr<T> create(Arguments&&... arguments);
};

/// Makes a T and calls its `initialise(arguments…)`, in which virtual calls and `shared_from_this`
/// work. Returns nullptr if `initialise` returns false. Exceptions of `initialise` pass through. An
/// application needs it only for classes of its own:
///
///     class Song final : public vexim::Object {
///     public:
///         using Object::Object;
///         static std::shared_ptr<Song> song(std::string title) {
///             return vexim::create<Song>(std::move(title));
///         }
///         bool initialise(std::string title) { … }
///     };
template <class T, class... Arguments>
std::shared_ptr<T> create(Arguments&&... arguments) {
    auto object = std::make_shared<T>(Creation{});
    if (!object->initialise(std::forward<Arguments>(arguments)...)) return nullptr;
    return object;
}

/// What an observer of a key receives.
struct KeyValueChange {
    /// As registered.
    std::string key;
    /// The value after the change; nil if the object cannot read the key.
    Value newValue;
};

/// The base class of the library's objects. They are shared by reference, compared by identity, and
/// observable by key. Unless a class says otherwise, use an object from one thread at a time.
///
///     user->addObserver(observer, "name", [](vexim::Object&, const vexim::KeyValueChange& change)
///     {
///         std::cout << change.newValue.description();
///     });
class VEXIM_EXPORT Object : public std::enable_shared_from_this<Object> {
public:
    explicit Object(Creation) noexcept;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object();

    /// The runtime record of this object's class: its name, superclass and declared properties.
    virtual const Class& runtimeClass() const;
    /// The runtime record of the root class.
    static const Class& staticClass();
    /// Whether the object's class is `cls` or derives from it.
    bool isKindOfClass(const Class& cls) const noexcept;

    // Messages by name (see Foundation/Runtime). If you know the function at compile time, call it
    // directly.
    /// Whether the class has a method of this name. The accessors of dynamic properties are not
    /// methods.
    bool respondsToSelector(Selector selector) const noexcept;
    /// The types of the message; nullptr if this object does not understand it.
    virtual std::shared_ptr<const MethodSignature> methodSignatureForSelector(
        Selector selector) const;
    /// Called for each message without a method that `methodSignatureForSelector` knows.
    virtual void forwardInvocation(Invocation& invocation);
    /// Sends a message. The arguments and the result are converted by the message's types. Missing
    /// arguments are 0 or nil, extra ones are ignored. Raises NSInvalidArgumentException if the
    /// object does not understand the message, if an argument does not fit its type, or if a type
    /// cannot be a `Value`.
    Value perform(Selector selector, std::initializer_list<Value> arguments = {});
    /// Raises NSInvalidArgumentException: "-[VXIMUser foo]: unrecognized selector sent to instance
    /// 0x5580…".
    [[noreturn]] void doesNotRecognizeSelector(Selector selector) const;

    /// "<VXIMUser: 0x5580…>". Some classes add their contents.
    virtual std::string description() const;
    /// Whether both are the same object. Some classes compare their contents.
    virtual bool isEqual(const Object& other) const;
    /// A copy. Classes that cannot be copied raise NSInvalidArgumentException.
    virtual std::shared_ptr<Object> copy() const;

    /// The value under a key, for observers and key paths. The root class returns nil for every
    /// key.
    virtual Value valueForKey(std::string_view key) const;

    // Key-value observing. Call from any thread. A handler runs on the thread that makes the
    // change, with no lock held.
    using ChangeHandler = std::function<void(Object& object, const KeyValueChange& change)>;
    /// Registers `handler` for a key. `observer` identifies the registration and is held weakly:
    /// once it is destroyed, the handler is not called any more.
    void addObserver(const std::shared_ptr<void>& observer, std::string key, ChangeHandler handler);
    /// Removes the observer's handlers for a key. Nothing happens if it has none.
    void removeObserver(const void* observer, std::string_view key);
    /// For classes: call it before a change of `key`, and `didChangeValueForKey` after it.
    void willChangeValueForKey(std::string_view key);
    /// Calls the handlers for `key`, in the order of registration.
    void didChangeValueForKey(std::string_view key);

protected:
    /// `shared_from_this`, cast to the derived class.
    template <class T>
    std::shared_ptr<T> sharedAs() {
        return std::static_pointer_cast<T>(shared_from_this());
    }

    /// `create` calls this. Derived classes declare one with the arguments that they need.
    bool initialise() { return true; }
    template <class T, class... Arguments>
    friend std::shared_ptr<T> create(Arguments&&... arguments);

private:
    std::atomic<detail::KeyValueObservers*> observers_{nullptr};  // made for the first observer
};

}  // namespace vexim
