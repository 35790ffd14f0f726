#include "VexIMLib/C/internal/Request.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/FailureListener.h"
#include "VexIMLib/Foundation/UntoldError.h"

namespace vexim::c {

Request::Request(std::shared_ptr<Mailbox> mailbox, Mailbox::RequestId id, Dictionary arguments)
    : mailbox_(std::move(mailbox)),
      id_(id),
      arguments_(std::move(arguments)) {}

Request::~Request() {
    if (mailbox_->isOpen(id_)) fail(InterfaceError::Abandoned, "The operation was abandoned.");
    if (folder_.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void Request::start(void (*operation)(Request&), std::shared_ptr<VXIMClient> client,
                    std::shared_ptr<StoreSeat>& stores) {
    if (!mailbox_->isOpen(id_)) return;
    client_ = std::move(client);
    stores_ = &stores;
    // Weak: the completions keep the request alive, and when they are destroyed, it counts as
    // abandoned.
    const FailureListener listener([weak = weak_from_this()](const ErrorPtr& cause) {
        if (const auto self = weak.lock()) self->fail(errorBody(*cause));
    });
    try {
        operation(*this);
    } catch (const Refusal& refusal) {
        fail(errorBody(refusal.problem));
    } catch (const Exception& mistake) {
        std::string error;
        write(error,
              *Error::make(kInterfaceErrorDomain, static_cast<std::int64_t>(InterfaceError::Raised),
                           Dictionary{{kLocalizedDescriptionKey, mistake.reason()},
                                      {"name", mistake.name()}}));
        fail(error);
    } catch (const std::exception& failure) {
        fail(InterfaceError::Raised, failure.what());
    }
    client_ = nullptr;
    stores_ = nullptr;
}

const Value& Request::value(std::string_view name) const {
    static const Value nil;
    const Value& value = arguments_.get(name);
    return value.isNull() ? nil : value;
}

Dictionary Request::dictionary(std::string_view name) const {
    const auto* dictionary = value(name).asDictionary();
    return dictionary ? *dictionary : Dictionary();
}

Array Request::array(std::string_view name) const { return optionalArray(name).value_or(Array()); }

std::optional<Array> Request::optionalArray(std::string_view name) const {
    const auto* array = value(name).asArray();
    return array ? std::optional(*array) : std::nullopt;
}

std::int32_t Request::int32(std::string_view name, std::int32_t otherwise) const {
    const Value& number = value(name);
    return number.isNil() ? otherwise : number.intValue();
}

void Request::succeed(std::string_view result) { mailbox_->answer(id_, Outcome::Answer, result); }

void Request::fail(std::string_view error) { mailbox_->answer(id_, Outcome::Error, error); }

void Request::end(bool succeeded, const ErrorPtr& error,
                  const std::function<void(std::string&)>& write) {
    if (const ErrorPtr failure = error ? error : UntoldError::current())
        return fail(errorBody(*failure));
    if (!succeeded)
        return fail(InterfaceError::Nothing,
                    "The operation failed or returned nothing, and gave no reason.");
    std::string result;
    write(result);
    succeed(result);
}

VXIMBooleanCompletion Request::done() {
    return done([](std::string& out) { out = "true"; });
}

VXIMBooleanCompletion Request::done(std::function<void(std::string&)> write) {
    return [self = shared_from_this(), write = std::move(write)](
               bool succeeded, const ErrorPtr& error) { self->end(succeeded, error, write); };
}

VXIMResultCompletion Request::result() {
    return [self = shared_from_this()](const Value& result, const ErrorPtr& error) {
        self->end(true, error, [&result](std::string& out) { write(out, result); });
    };
}

VXIMProgress Request::progress() {
    if (!boolean("progress")) return nullptr;
    return [mailbox = mailbox_, id = id_](std::int32_t percent) {
        const auto extra = mailbox->extraOf(id);
        if (!extra) return;
        mailbox->event(R"({"@type":"event","name":"progress","@extra":)" + *extra +
                       R"(,"percent":)" + std::to_string(percent) + "}");
    };
}

std::shared_ptr<VXIMTransfer> Request::transfer() {
    auto transfer = VXIMTransfer::transfer();
    mailbox_->attach(id_, transfer);
    return transfer;
}

std::optional<std::string> Request::folder() {
    if (folder_.empty()) {
        std::error_code failed;
        std::string path = (std::filesystem::temp_directory_path(failed) / "vexim-XXXXXX").string();
        if (failed || ::mkdtemp(path.data()) == nullptr) return std::nullopt;
        folder_ = std::move(path);
    }
    return folder_;
}

std::optional<std::string> Request::stage(const std::string& name, std::string_view contents) {
    const auto directory = folder();
    if (!directory) return std::nullopt;
    const std::string path = *directory + "/" + name;
    std::ofstream file(path, std::ios::binary);
    file.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    file.close();
    if (!file) return std::nullopt;
    return path;
}

}  // namespace vexim::c
