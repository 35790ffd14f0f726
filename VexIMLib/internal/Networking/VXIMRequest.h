#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/URL.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"

class VXIMTransfer;

namespace vexim {
class InputStream;
class OperationQueue;
class OutputStream;
struct TrustChoice;
struct URLRequest;
class URLSessionTask;
}  // namespace vexim

/// Gives the stream that an upload reads its body from.
using VXIMNewBodyStreamBlock = std::function<std::shared_ptr<vexim::InputStream>()>;
/// Gives the stream that a download writes to; called on the session's delegate queue with the
/// target path.
using VXIMNewOutputStreamBlock =
    std::function<std::shared_ptr<vexim::OutputStream>(const std::string& targetPath)>;

/// One REST call: method, path, query, headers and body. It turns itself into a signed URL request,
/// sends it, and retries failures that are marked "temporary", twice at most.
///
///     auto request = VXIMRequest::request();
///     request->setMethod("POST");
///     request->setPath("/groups");
///     request->setBody(vexim::Dictionary{{"name", "Reading circle"}});
///     request->sendWithCompletion([](vexim::Value result, vexim::ErrorPtr error) { … });
///
/// Not locked: build it on one thread, and leave it alone while it is in flight.
class VXIMRequest : public vexim::Object {
public:
    using vexim::Object::Object;

    // A "GET" without path, with the application id and key that the shared configuration has now.
    static std::shared_ptr<VXIMRequest> request() { return init(); }
    static std::shared_ptr<VXIMRequest> init();

    const std::string& method() const noexcept { return method_; }
    void setMethod(std::string method) { method_ = std::move(method); }

    /// Relative to the base URL, or an absolute URL that begins with "http". Used as it stands: ids
    /// in it are not escaped.
    const std::optional<std::string>& path() const noexcept { return path_; }
    void setPath(std::optional<std::string> path) { path_ = std::move(path); }

    const std::optional<vexim::Dictionary>& queryParams() const noexcept { return queryParams_; }
    void setQueryParams(std::optional<vexim::Dictionary> params) {
        queryParams_ = std::move(params);
    }

    const std::optional<std::string>& appId() const noexcept { return appId_; }
    void setAppId(std::optional<std::string> appId) { appId_ = std::move(appId); }
    /// What the signature is made with; never sent itself. Without one the request goes out
    /// unsigned.
    const std::optional<std::string>& clientKey() const noexcept { return clientKey_; }
    void setClientKey(std::optional<std::string> clientKey) { clientKey_ = std::move(clientKey); }
    /// Kept, and used by nothing.
    const std::optional<std::string>& masterKey() const noexcept { return masterKey_; }
    void setMasterKey(std::optional<std::string> masterKey) { masterKey_ = std::move(masterKey); }
    /// Sent as "X-VX-Session-Token" when it is not empty.
    const std::optional<std::string>& sessionToken() const noexcept { return sessionToken_; }
    void setSessionToken(std::optional<std::string> token) { sessionToken_ = std::move(token); }
    /// Kept, but no request ever handles cookies.
    bool HTTPShouldHandleCookies() const noexcept { return shouldHandleCookies_; }
    void setHTTPShouldHandleCookies(bool handle) noexcept { shouldHandleCookies_ = handle; }

    /// The JSON body: an array, a dictionary or nil.
    const vexim::Value& body() const noexcept { return body_; }
    /// Anything but an array, a dictionary or nil is ignored; the previous body stays.
    void setBody(vexim::Value body);
    /// Sent when there is no `body`.
    const std::shared_ptr<vexim::InputStream>& bodyStream() const noexcept { return bodyStream_; }
    void setBodyStream(std::shared_ptr<vexim::InputStream> stream) {
        bodyStream_ = std::move(stream);
    }

    /// Extra headers, to be written in place; they win over computed ones. Those that are no
    /// strings are not sent.
    vexim::Dictionary& headers() noexcept { return headers_; }
    const vexim::Dictionary& headers() const noexcept { return headers_; }
    void setHeaders(vexim::Dictionary headers) { headers_ = std::move(headers); }
    /// nullopt removes the field.
    void setValueForHTTPHeaderField(std::optional<std::string> value, const std::string& field);
    /// Entries of `headers` win over those that are there.
    void addHTTPHeadersFromDictionary(const vexim::Dictionary& headers);

    /// Reserved: always nullptr.
    std::shared_ptr<vexim::OperationQueue> requestQueue() const noexcept { return nullptr; }

    /// Retries made so far, over the life of the request: it is never reset.
    std::int64_t retryCount() const noexcept { return retryCount_; }
    void setRetryCount(std::int64_t count) noexcept { retryCount_ = count; }

    // Composition.

    /// The shared configuration's origin; nullopt when there is none.
    std::optional<std::string> baseUrl() const;
    /// Who decides about the certificate of every host that the request goes to: the shared
    /// configuration's options.
    vexim::TrustChoice trust() const;
    /// "key=value&…" in the dictionary's order: keys as they are, values with the platform's legacy
    /// escaping, which leaves `&`, `=`, `+` and the like alone. nullopt for what is no dictionary.
    /// A value that is no string raises NSInvalidArgumentException: convert it first.
    std::optional<std::string> composeQueryString(const vexim::Value& params) const;
    /// nullopt when the text that results is no URL.
    std::optional<vexim::URL> composeURLWithPath(const std::optional<std::string>& path,
                                                 const vexim::Value& params) const;
    /// "bundle-identifier/build iOS/system-version"
    std::string generateUserAgent() const;
    /// Adds signature and application id, for the time of this call, to the headers of `request`;
    /// nothing without a key.
    void signRequest(VXIMRequest& request) const;
    /// Everything that goes onto the wire; signs.
    vexim::Dictionary buildHeaders();
    /// Ready to be sent; signs. A body that cannot be serialised raises
    /// NSInternalInconsistencyException.
    vexim::URLRequest urlRequest();

    // Sending. Each keeps the request and the callbacks alive until it ends. Call from any thread.

    /// Sends and retries. `completion` runs once on the main queue, with what the JSON answer holds
    /// or, when a success has another body, with its bytes. Mistakes in query or body raise here,
    /// before anything is sent.
    void sendWithCompletion(VXIMResultCompletion completion);

    /// Streams a body up and answers the started task. Retried like `sendWithCompletion`, but never
    /// after the first report of progress: a body that was begun cannot be replayed. Cancelling the
    /// task leaves `completion` uncalled; cancelling through `transfer` (one handle for one upload)
    /// ends it with "NSURLErrorDomain" -999. One that was cancelled before starts nothing: the
    /// answer is nullptr.
    std::shared_ptr<vexim::URLSessionTask> uploadWithNewBodyStreamBlock(
        VXIMNewBodyStreamBlock newBodyStream, VXIMProgress progress,
        VXIMResultCompletion completion, std::shared_ptr<VXIMTransfer> transfer = nullptr);

    /// Streams the answer into what `newOutputStream` gives; the result is the target path. Retries
    /// and cancels as uploads do.
    std::shared_ptr<vexim::URLSessionTask> downloadWithOutputStreamBlock(
        VXIMNewOutputStreamBlock newOutputStream, VXIMProgress progress,
        VXIMResultCompletion completion, std::shared_ptr<VXIMTransfer> transfer = nullptr);

    /// Downloads to the file at `path`, which is the result. The bytes go to a temporary name
    /// beside it that is renamed when the answer is whole, so what stands at `path` is never half a
    /// file; after a failure the temporary one is gone. Where the file cannot be written, nothing
    /// is sent; the error is `VXErrorDomain` 100 over the file's own, and not temporary.
    void downloadToPath(std::string path, VXIMProgress progress, VXIMResultCompletion completion,
                        std::shared_ptr<VXIMTransfer> transfer = nullptr);

    /// Counts a retry and runs `retry` on the main queue in 1 to 2 seconds.
    void makeDelayedRetry(std::function<void()> retry);

    bool initialise();

private:
    std::shared_ptr<VXIMRequest> self() { return sharedAs<VXIMRequest>(); }
    /// Whether `error` is marked temporary and no fault of a file's, attempts are left, and the
    /// body can be given from its start.
    bool shouldRetry(const vexim::ErrorPtr& error) const;
    /// Runs `again` after the delay. What that raises ends the operation through `completion`:
    /// nobody could catch it.
    void retry(std::function<void()> again, VXIMResultCompletion completion);
    /// `downloadWithOutputStreamBlock`; nullopt leaves the target path to the manager.
    std::shared_ptr<vexim::URLSessionTask> download(VXIMNewOutputStreamBlock newOutputStream,
                                                    VXIMProgress progress,
                                                    VXIMResultCompletion completion,
                                                    std::shared_ptr<VXIMTransfer> transfer,
                                                    std::optional<std::string> targetPath);
    /// Passes reports on; the first one uses the retries up, since a body that was begun cannot be
    /// replayed.
    VXIMProgress progressThatEndsRetries(VXIMProgress progress);
    /// The end of one attempt at a transfer: another one by `again`, or the caller's completion.
    void concludeTransfer(vexim::Value result, vexim::ErrorPtr error,
                          const VXIMResultCompletion& completion,
                          const std::shared_ptr<VXIMTransfer>& transfer,
                          std::function<void()> again);

    std::string method_;
    std::optional<std::string> path_;
    std::optional<vexim::Dictionary> queryParams_;
    std::optional<std::string> appId_;
    std::optional<std::string> clientKey_;
    std::optional<std::string> masterKey_;
    std::optional<std::string> sessionToken_;
    bool shouldHandleCookies_ = false;
    vexim::Value body_;
    std::shared_ptr<vexim::InputStream> bodyStream_;
    vexim::Dictionary headers_;
    std::int64_t retryCount_ = 0;
};
