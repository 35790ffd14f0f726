#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMMessage.h"
#include "VexIMLib/internal/Resources/ResourceErrors.h"

// What all operations of all resources share: how paths and queries are made, how an answer is
// read, how an operation ends.
//
// An operation reads its answer in a function that may raise, for example for a list with an
// unusable element. That is not the application's mistake but the service's, so the exception
// becomes the error of the operation. Such a function reads everything before it changes local
// state.
namespace vexim::resources {

// Arguments. These raise NSInvalidArgumentException, on the caller's thread.

/// `id` in the form used in a path. nil and null raise; the text names `what`.
std::string pathId(const Value& id, const char* what);

/// The query of a history: "ts" in milliseconds (truncated) and "limit", both as decimal text.
Dictionary historyParams(double timestampInSeconds, std::int32_t limit);

// Answers. These raise NSInvalidArgumentException if the answer has another type.

const Dictionary& requireDictionary(const Value& answer, const char* what);
const Array& requireArray(const Value& answer, const char* what);
/// nil is an empty list.
const Array& requireArrayOrNil(const Value& answer, const char* what);

/// The body of an answer that is not a JSON object or array, as text; nullopt if it is not UTF-8.
std::optional<std::string> textOf(const Data& body);
/// The id in an answer that is only a JSON string: its text without double quotes; nil if it is not
/// UTF-8.
Value bareId(const Data& body);

/// Makes an object from each element with `make`. If `make` returns nullptr, it raises.
template <class Make>
auto objectsFrom(const Array& elements, const char* what, const Make& make) {
    std::vector<decltype(make(Value()))> objects;
    objects.reserve(elements.size());
    for (const Value& element : elements) {
        auto object = make(element);
        if (!object)
            throw Exception(kInvalidArgumentException,
                            std::string("A list element is not a ") + what + ".");
        objects.push_back(std::move(object));
    }
    return objects;
}

/// A history's messages in order. An element that is not a dictionary raises.
std::vector<std::shared_ptr<VXIMMessage>> messagesFrom(const Array& history);

// Member lists. nil stays nil; anything else but a list raises.

/// `ids` after those in `members`, duplicates kept.
Value appending(const Value& members, const Array& ids);
/// `members` without every element that equals one of `ids`.
Value removing(const Value& members, const Array& ids);

// How operations end.

/// Ends an operation with what `read` makes from the answer: `Outcome read(const Value& result,
/// ErrorPtr& error)` also runs after a failure, with a nil result. If it raises, the completion
/// gets `failure` and an error that names the cause.
template <class Outcome, class Read>
VXIMResultCompletion endingWith(std::function<void(Outcome, ErrorPtr)> completion, Outcome failure,
                                Read read) {
    return [completion = std::move(completion), failure = std::move(failure),
            read = std::move(read)](const Value& result, ErrorPtr error) {
        Outcome outcome = failure;
        try {
            outcome = read(result, error);
        } catch (const Exception& cause) {
            error = errors::unusableAnswer(cause);
        }
        if (completion) completion(std::move(outcome), std::move(error));
    };
}

/// The usual ending: success if there was no error, after `change` has updated local state.
template <class Change>
VXIMResultCompletion endingWithSuccess(VXIMBooleanCompletion completion, Change change) {
    return endingWith(std::move(completion), false,
                      [change = std::move(change)](const Value& result, const ErrorPtr& error) {
                          if (!error) change(result);
                          return error == nullptr;
                      });
}
VXIMResultCompletion endingWithSuccess(VXIMBooleanCompletion completion);
/// The ending of a request that adds or removes `ids`: `change` (`appending` or `removing`) does
/// the same to the members that `place`, a group or a room, knows locally.
template <class Place>
VXIMResultCompletion endingWithMembers(VXIMBooleanCompletion completion,
                                       std::shared_ptr<Place> place, Array ids,
                                       Value (*change)(const Value&, const Array&)) {
    return endingWithSuccess(std::move(completion), [place = std::move(place), ids = std::move(ids),
                                                     change](const Value&) {
        place->setMembers(change(place->members(), ids));
    });
}
/// The ending of a request for the record of `object`: its entries join those known locally.
template <class Object>
VXIMResultCompletion endingWithRecord(VXIMBooleanCompletion completion,
                                      std::shared_ptr<Object> object) {
    return endingWithSuccess(
        std::move(completion), [object = std::move(object)](const Value& result) {
            const std::string what = "The record of a " + object->runtimeClass().name();
            object->addEntriesFromDictionary(requireDictionary(result, what.c_str()));
        });
}
/// For a history: its messages, or nullopt if the answer is not a list.
VXIMResultCompletion endingWithMessages(VXIMMessagesCompletion completion);

/// Runs `function` at once on the main thread, and through the queue from any other.
void runOnMain(std::function<void()> function);

/// Calls `completion` at once, on the main thread. An empty one is skipped.
template <class Outcome>
void endAtOnce(std::function<void(Outcome, ErrorPtr)> completion, Outcome outcome, ErrorPtr error) {
    if (!completion) return;
    runOnMain([completion = std::move(completion), outcome = std::move(outcome),
               error = std::move(error)] { completion(outcome, error); });
}

}  // namespace vexim::resources
