#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "VexIMLib/C/internal/Errors.h"
#include "VexIMLib/C/internal/Mailbox.h"
#include "VexIMLib/C/internal/Records.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMClient.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMTransfer.h"

namespace vexim::c {

/// A client's stores. Only the library with the store makes one. Main thread.
class StoreSeat {
public:
    StoreSeat() = default;
    StoreSeat(const StoreSeat&) = delete;
    StoreSeat& operator=(const StoreSeat&) = delete;
    virtual ~StoreSeat() = default;
};

/// One running request, as its operation sees it: the arguments, which were checked against the
/// table, and the completions to pass to the library. The completions keep it alive. If the last
/// one is destroyed without being called, the answer is that the operation was abandoned. Main
/// thread.
///
/// It has more than 25 functions: one for each type of argument, and one for each kind of answer.
class Request : public std::enable_shared_from_this<Request> {
public:
    Request(std::shared_ptr<Mailbox> mailbox, Mailbox::RequestId id, Dictionary arguments);
    ~Request();
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    /// Runs the operation, unless the request was answered meanwhile. An exception becomes the
    /// answer.
    void start(void (*operation)(Request&), std::shared_ptr<VXIMClient> client,
               std::shared_ptr<StoreSeat>& stores);

    // Only while `start` runs: otherwise client and completion would keep each other alive.
    const std::shared_ptr<VXIMClient>& sharedClient() const { return client_; }
    VXIMClient& client() const { return *client_; }
    std::shared_ptr<StoreSeat>& stores() const { return *stores_; }

    const std::shared_ptr<Mailbox>& sharedMailbox() const { return mailbox_; }
    Mailbox& mailbox() const { return *mailbox_; }
    Mailbox::RequestId id() const noexcept { return id_; }

    // Arguments. A missing one is nil, nullopt, or the default.
    const Value& value(std::string_view name) const;
    std::optional<std::string> text(std::string_view name) const { return value(name).asString(); }
    Dictionary dictionary(std::string_view name) const;
    Array array(std::string_view name) const;
    std::optional<Array> optionalArray(std::string_view name) const;
    bool boolean(std::string_view name) const { return value(name).boolValue(); }
    double number(std::string_view name) const { return value(name).doubleValue(); }
    std::int32_t int32(std::string_view name, std::int32_t otherwise) const;

    // Answers at once. Only the first answer counts.
    void succeed(std::string_view result);
    void fail(std::string_view error);
    void fail(InterfaceError code, std::string description) {
        fail(errorBody(code, std::move(description)));
    }

    // Completions.

    /// The result is true.
    VXIMBooleanCompletion done();
    /// The result is what `write` writes after a success.
    VXIMBooleanCompletion done(std::function<void(std::string&)> write);
    template <class T>
    VXIMBooleanCompletion doneWith(std::shared_ptr<T> object) {
        return done([object = std::move(object)](std::string& out) { write(out, *object); });
    }
    /// The result is the value; nil is null.
    VXIMResultCompletion result();
    /// The result is what `write` writes for the value; null if there is no value and no error.
    template <class T>
    std::function<void(std::optional<T>, ErrorPtr)> optional(void (*write)(std::string&,
                                                                           const T&)) {
        return [self = shared_from_this(), write](const std::optional<T>& value,
                                                  const ErrorPtr& error) {
            self->end(true, error, [&value, write](std::string& out) {
                if (value) return write(out, *value);
                out = "null";
            });
        };
    }
    /// The result is the object.
    template <class T>
    std::function<void(std::shared_ptr<T>, ErrorPtr)> object() {
        return
            [self = shared_from_this()](const std::shared_ptr<T>& object, const ErrorPtr& error) {
                self->end(object != nullptr, error,
                          [&object](std::string& out) { write(out, *object); });
            };
    }
    /// The result is the list.
    template <class T>
    std::function<void(std::optional<std::vector<std::shared_ptr<T>>>, ErrorPtr)> list() {
        return [self = shared_from_this()](
                   const std::optional<std::vector<std::shared_ptr<T>>>& objects,
                   const ErrorPtr& error) {
            self->end(objects.has_value(), error,
                      [&objects](std::string& out) { write(out, *objects); });
        };
    }

    /// Reports the progress if the request asks for it.
    VXIMProgress progress();
    /// Cancelled together with the request.
    std::shared_ptr<VXIMTransfer> transfer();

    /// Makes a file with these contents, which is removed with the request; nullopt if it cannot be
    /// made.
    std::optional<std::string> stage(const std::string& name, std::string_view contents);
    /// The folder of these files; nullopt if it cannot be made.
    std::optional<std::string> folder();

private:
    void end(bool succeeded, const ErrorPtr& error, const std::function<void(std::string&)>& write);

    const std::shared_ptr<Mailbox> mailbox_;
    const Mailbox::RequestId id_;
    std::shared_ptr<VXIMClient> client_;
    std::shared_ptr<StoreSeat>* stores_ = nullptr;
    const Dictionary arguments_;
    std::string folder_;
};
using RequestPtr = std::shared_ptr<Request>;

}  // namespace vexim::c
