#include "VexIMLib/Foundation/Error.h"

#include <utility>

#include "VexIMLib/Foundation/Runtime/Class.h"

namespace vexim {

const Class& Error::staticClass() {
    static const Class& cls = Class::declare("Error", &Object::staticClass());
    return cls;
}

const Class& Error::runtimeClass() const { return staticClass(); }

ErrorPtr Error::make(std::string domain, std::int64_t code, Value userInfo) {
    return create<Error>(std::move(domain), code, std::move(userInfo));
}

ErrorPtr Error::withDescription(std::string domain, std::int64_t code, std::string description) {
    return make(std::move(domain), code,
                Dictionary{{kLocalizedDescriptionKey, std::move(description)}});
}

bool Error::initialise(std::string domain, std::int64_t code, Value userInfo) {
    domain_ = std::move(domain);
    code_ = code;
    userInfo_ = std::move(userInfo);
    return true;
}

std::string Error::localizedDescription() const {
    if (auto text = userInfo_.get(kLocalizedDescriptionKey).asString()) return *text;
    // the key that services use
    if (auto text = userInfo_.get("errorMessage").asString()) return *text;
    return "The operation couldn’t be completed. (" + domain_ + " error " + std::to_string(code_) +
           ".)";
}

ErrorPtr Error::underlyingError() const { return userInfo_.get(kUnderlyingErrorKey).as<Error>(); }

std::string Error::description() const {
    return "Error Domain=" + domain_ + " Code=" + std::to_string(code_) + " \"" +
           localizedDescription() + "\"";
}

bool Error::isEqual(const Object& other) const {
    const auto* error = dynamic_cast<const Error*>(&other);
    return error && code_ == error->code_ && domain_ == error->domain_ &&
           userInfo_ == error->userInfo_;
}

}  // namespace vexim
