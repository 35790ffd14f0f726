#include "VexIMLib/internal/Networking/VXIMRequest.h"

#include <string_view>
#include <utility>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Networking/VXIMUtils.h"
#include "VexIMLib/internal/Platform/Facts/DeviceInfo.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"
#include "VexIMLib/internal/Platform/Loading/URLRequest.h"
#include "VexIMLib/internal/Platform/Trust/Trust.h"

namespace {

using namespace std::literals;

constexpr auto kSignHeader = "X-VX-Request-Sign"sv;
constexpr auto kAppIdHeader = "X-VX-AppId"sv;
constexpr auto kSessionTokenHeader = "X-VX-Session-Token"sv;

std::string escapedQueryValue(const vexim::Value& value) {
    if (auto text = value.asStringView()) return vexim::percentEscapeLegacy(*text);
    throw vexim::Exception(
        vexim::kInvalidArgumentException,
        "a query value must be a string: stringByAddingPercentEscapesUsingEncoding: is an unrecognized "
        "selector of " +
            value.description());
}

/// The shared configuration's; empty when there is none.
vexim::Dictionary sharedOptions() {
    const auto configuration = vxim_configuration.get();
    return configuration ? std::as_const(*configuration).dictionary() : vexim::Dictionary{};
}

}  // namespace

std::shared_ptr<VXIMRequest> VXIMRequest::init() { return vexim::create<VXIMRequest>(); }

bool VXIMRequest::initialise() {
    headers_ = {{"Content-Type", "application/json"}};
    retryCount_ = 0;
    method_ = "GET";
    if (auto configuration = vxim_configuration.get()) {
        appId_ = configuration->appId();
        clientKey_ = configuration->clientKey();
    }
    return true;
}

void VXIMRequest::setBody(vexim::Value body) {
    if (body.isNil() || body.isArray() || body.isDictionary()) body_ = std::move(body);
}

void VXIMRequest::setValueForHTTPHeaderField(std::optional<std::string> value,
                                             const std::string& field) {
    headers_.setOrRemove(field, value);
}

void VXIMRequest::addHTTPHeadersFromDictionary(const vexim::Dictionary& headers) {
    headers_.addEntries(headers);
}

std::optional<std::string> VXIMRequest::baseUrl() const {
    auto configuration = vxim_configuration.get();
    if (!configuration || !configuration->socketURL()) return std::nullopt;
    return configuration->socketURL()->absoluteString();
}

vexim::TrustChoice VXIMRequest::trust() const { return vexim::TrustChoice::of(sharedOptions()); }

std::optional<std::string> VXIMRequest::composeQueryString(const vexim::Value& params) const {
    const auto* dictionary = params.asDictionary();
    if (!dictionary) return std::nullopt;
    std::string query;
    query.reserve(100);
    bool first = true;
    for (const auto [key, value] : *dictionary) {
        if (!std::exchange(first, false)) query += '&';
        query += key;
        query += '=';
        query += escapedQueryValue(value);
    }
    return query;
}

std::optional<vexim::URL> VXIMRequest::composeURLWithPath(const std::optional<std::string>& path,
                                                          const vexim::Value& params) const {
    std::string text;
    text.reserve(100);
    if (path) {
        if (!path->starts_with("http") && !path->starts_with('/')) text += '/';
        text += *path;
    }
    if (auto query = composeQueryString(params); query && !query->empty()) {
        text += text.find('?') == std::string::npos ? '?' : '&';
        text += *query;
    }
    // If the base URL ends with a slash, there are two: nothing is normalised.
    if (!text.starts_with("http")) text.insert(0, baseUrl().value_or(""));
    return vexim::URL::parse(text);
}

std::string VXIMRequest::generateUserAgent() const {
    const auto device = vexim::deviceInfo();
    return vexim::printed(device.bundleIdentifier) + '/' + vexim::printed(device.bundleVersion) +
           " iOS/" + vexim::printed(device.systemVersion);
}

void VXIMRequest::signRequest(VXIMRequest& request) const {
    auto signature = VXIMUtils::signatureForClientKey(request.clientKey());
    if (!signature) return;
    vexim::Dictionary headers;
    headers.set(kSignHeader, *signature);
    if (request.appId()) headers.set(kAppIdHeader, *request.appId());
    request.addHTTPHeadersFromDictionary(headers);
}

vexim::Dictionary VXIMRequest::buildHeaders() {
    vexim::Dictionary all;
    all.set("User-Agent", generateUserAgent());
    // Signing overwrites the signature of an earlier attempt, because each one has its own send
    // time.
    signRequest(*this);
    if (sessionToken_ && !sessionToken_->empty()) all.set(kSessionTokenHeader, *sessionToken_);
    all.addEntries(headers_);
    return all;
}

vexim::URLRequest VXIMRequest::urlRequest() {
    vexim::URLRequest request;
    request.url = composeURLWithPath(path_, queryParams_ ? vexim::Value(*queryParams_) : nullptr);
    const auto options = sharedOptions();
    request.trust = vexim::TrustChoice::of(options);
    request.meter = vexim::Meter::of(options);
    request.method = method_;
    request.shouldHandleCookies = false;
    const auto headers = buildHeaders();
    for (const auto [field, value] : headers) {
        if (auto text = value.asString()) request.headers.set(std::string(field), *std::move(text));
    }
    if (method_ == "GET") return request;  // never carries a body, even when one is set
    if (!body_.isNil()) {
        auto json = vexim::writeJSON(body_);
        if (json.error) {
            throw vexim::Exception(
                vexim::kInternalInconsistencyException,
                "failed to serialize request body object, error: " + json.error->description());
        }
        request.body = vexim::Data::fromString(std::move(json.text));
    } else if (bodyStream_) {
        request.bodyStream = bodyStream_;
    }
    return request;
}
