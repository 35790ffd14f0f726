#include "VexIMLib/VXIMAttributedObject.h"

#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Platform/Facts/NumberFormatter.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"

using namespace vexim::resources;
using vexim::Data;
using vexim::Dictionary;
using vexim::Value;

namespace {

constinit const vexim::DynamicProperty<Value> kAttributes{&VXIMRuntimeObject::staticClass,
                                                          "attributes"};

/// Reads the value of one attribute from the JSON text that the service sends.
Value attributeFrom(const Data& body) {
    const auto text = textOf(body);
    if (!text) return {};
    if (text->starts_with('"') && text->ends_with('"')) {
        if (text->size() < 2)
            throw vexim::Exception(vexim::kRangeException, "A lone double quote is not a value.");
        // no unescaping: the application gets escapes unchanged
        return text->substr(1, text->size() - 2);
    }
    if (*text == "null") return Value::null();
    if (*text != "true" && *text != "false") return vexim::numberFromString(*text);
    return *text == "true";
}

}  // namespace

std::string VXIMAttributedObject::resourcePath(std::string_view below) const {
    const std::string what = "The id of a " + runtimeClass().name();
    return std::string(pathPrefix())
        .append("/")
        .append(pathId(resourceId(), what.c_str()))
        .append(below);
}

Value VXIMAttributedObject::attributes() const { return kAttributes.get(*this); }

void VXIMAttributedObject::setAttributes(Value attributes) {
    kAttributes.set(*this, std::move(attributes));
}

void VXIMAttributedObject::addAttrsFromDictionary(const Dictionary& added) {
    const Value current = attributes();
    Dictionary merged = current.isDictionary() ? *current.asDictionary() : Dictionary();
    merged.addEntries(added);
    setAttributes(std::move(merged));
}

void VXIMAttributedObject::updateAttributes(Dictionary attributes,
                                            VXIMBooleanCompletion completion) {
    VXIMHTTPRequest::post(
        resourcePath("/attributes"), attributes,
        endingWithSuccess(std::move(completion),
                          [self = sharedAs<VXIMAttributedObject>(), attributes](const Value&) {
                              self->addAttrsFromDictionary(attributes);
                          }));
}

void VXIMAttributedObject::replaceAttributes(Dictionary attributes,
                                             VXIMBooleanCompletion completion) {
    VXIMHTTPRequest::put(
        resourcePath("/attributes"), attributes,
        endingWithSuccess(std::move(completion),
                          [self = sharedAs<VXIMAttributedObject>(), attributes](const Value&) {
                              if (self->localAttributes() == LocalCopy::FollowsServer)
                                  self->setAttributes(attributes);
                          }));
}

void VXIMAttributedObject::fetchAttributesWithCompletion(VXIMResultCompletion completion) {
    VXIMHTTPRequest::get(resourcePath("/attributes"), std::nullopt,
                         endingWith<Value>(std::move(completion), nullptr,
                                           [self = sharedAs<VXIMAttributedObject>()](
                                               const Value& result, const vexim::ErrorPtr&) {
                                               if (result.isDictionary())
                                                   self->setAttributes(result);
                                               return result;
                                           }));
}

void VXIMAttributedObject::getAttributeForKey(std::string key, VXIMResultCompletion completion) {
    VXIMHTTPRequest::get(
        resourcePath("/attributes/" + key), std::nullopt,
        endingWith<Value>(
            std::move(completion), nullptr,
            [self = sharedAs<VXIMAttributedObject>()](const Value& result, const vexim::ErrorPtr&) {
                return result.isData() ? attributeFrom(*result.asData()) : result;
            }));
}

void VXIMAttributedObject::deleteAttributesWithCompletion(VXIMBooleanCompletion completion) {
    VXIMHTTPRequest::deletePath(
        resourcePath("/attributes"), nullptr,
        endingWithSuccess(std::move(completion),
                          [self = sharedAs<VXIMAttributedObject>()](const Value&) {
                              if (self->localAttributes() == LocalCopy::FollowsServer)
                                  self->setAttributes(nullptr);
                          }));
}
