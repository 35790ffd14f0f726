// An archive is a JSON object: {"class": name, "values": {key: value, …}}
// Example: {"class":"VXIMMessage","values":{"payload":{"content":{"media":0,"body":"hi"}}}}

#include "VexIMLib/Foundation/KeyedArchiver.h"

#include <utility>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/Runtime/Class.h"

namespace vexim::detail {

namespace {

// the platform's code for a coder that cannot be read
constexpr std::int64_t kCorruptArchive = 4864;
constexpr const char* kClass = "class";
constexpr const char* kValues = "values";

void report(ErrorPtr* error, ErrorPtr what) {
    if (error) *error = std::move(what);
}

}  // namespace

Data archive(const Class& cls, const Coder& coder, ErrorPtr* error) {
    JSONText text = writeJSON(Dictionary{{kClass, cls.name()}, {kValues, coder.values()}});
    report(error, text.error);
    return text.error ? Data() : Data::fromString(std::move(text.text));
}

std::optional<Coder> unarchive(const Class& cls, const Data& archive, ErrorPtr* error) {
    const JSONResult content = parseJSON(archive.view());
    const Dictionary* values = content.value.get(kValues).asDictionary();
    if (!values || content.value.get(kClass) != cls.name()) {
        Dictionary info{
            {kLocalizedDescriptionKey, "The archive does not hold a " + cls.name() + "."}};
        info.setOrRemove(kUnderlyingErrorKey, content.error);
        report(error, Error::make(kCocoaErrorDomain, kCorruptArchive, std::move(info)));
        return std::nullopt;
    }
    report(error, nullptr);
    return Coder(*values);
}

}  // namespace vexim::detail
