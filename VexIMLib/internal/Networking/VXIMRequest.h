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
/// Not locked: build it on one thread, and do not change it while it is being sent.
///
/// It has more than 25 functions: half of them read or set one part of the request, and each way to
/// send it has one. Three files share them by job.
class VXIMRequest : public vexim::Object {
public:
    using vexim::Object::Object;

    // Makes a "GET" without a path, with the current application id and key of the shared
    // configuration.
    static std::shared_ptr<VXIMRequest> request() { return init(); }
    static std::shared_ptr<VXIMRequest> init();

    const std::string& method() const noexcept { return method_; }
    void setMethod(std::string method) { method_ = std::move(method); }

    /// Relative to the base URL, or an absolute URL that begins with "http". Used unchanged: ids in
    /// it are not escaped.
    const std::optional<std::string>& path() const noexcept { return path_; }
    void setPath(std::optional<std::string> path) { path_ = std::move(path); }

    const std::optional<vexim::Dictionary>& queryParams() const noexcept { return queryParams_; }
    void setQueryParams(std::optional<vexim::Dictionary> params) {
        queryParams_ = std::move(params);
    }

    const std::optional<std::string>& appId() const noexcept { return appId_; }
    void setAppId(std::optional<std::string> appId) { appId_ = std::move(appId); }
    /// The key for the signature; never sent itself. Without a key the request is not signed.
    const std::optional<std::string>& clientKey() const noexcept { return clientKey_; }
    void setClientKey(std::optional<std::string> clientKey) { clientKey_ = std::move(clientKey); }
    /// Stored, but not used.
    const std::optional<std::string>& masterKey() const noexcept { return masterKey_; }
    void setMasterKey(std::optional<std::string> masterKey) { masterKey_ = std::move(masterKey); }
    /// Sent as "X-VX-Session-Token" when it is not empty.
    const std::optional<std::string>& sessionToken() const noexcept { return sessionToken_; }
    void setSessionToken(std::optional<std::string> token) { sessionToken_ = std::move(token); }
    /// Stored, but requests never handle cookies.
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

    /// Extra headers, which override computed ones. May be changed in place. Values that are not
    /// strings are not sent.
    vexim::Dictionary& headers() noexcept { return headers_; }
    const vexim::Dictionary& headers() const noexcept { return headers_; }
    void setHeaders(vexim::Dictionary headers) { headers_ = std::move(headers); }
    /// nullopt removes the field.
    void setValueForHTTPHeaderField(std::optional<std::string> value, const std::string& field);
    /// Entries of `headers` overwrite existing ones.
    void addHTTPHeadersFromDictionary(const vexim::Dictionary& headers);

    /// Reserved: always nullptr.
    std::shared_ptr<vexim::OperationQueue> requestQueue() const noexcept { return nullptr; }

    /// A request is sent again at most this often: from this count on there are no retries.
    static constexpr std::int64_t kMaxRetries = 2;
    /// The retries so far, over the life of the request. It is never reset.
    std::int64_t retryCount() const noexcept { return retryCount_; }
    void setRetryCount(std::int64_t count) noexcept { retryCount_ = count; }

    // Building the request.

    /// The shared configuration's origin; nullopt when there is none.
    std::optional<std::string> baseUrl() const;
    /// Decides about the certificates of all hosts that the request is sent to, by the shared
    /// configuration's options.
    vexim::TrustChoice trust() const;
    /// "key=value&…" in the dictionary's order: keys unchanged, values with the platform's legacy
    /// escaping, which leaves `&`, `=`, `+` and the like unchanged. nullopt for anything but a
    /// dictionary. A value that is not a string raises NSInvalidArgumentException: convert it
    /// first.
    std::optional<std::string> composeQueryString(const vexim::Value& params) const;
    /// nullopt if the resulting text is not a URL.
    std::optional<vexim::URL> composeURLWithPath(const std::optional<std::string>& path,
                                                 const vexim::Value& params) const;
    /// "bundle-identifier/build iOS/system-version"
    std::string generateUserAgent() const;
    /// Adds the application id and a signature with the current time to the headers of `request`.
    /// Does nothing without a key.
    void signRequest(VXIMRequest& request) const;
    /// All headers that are sent; signs the request.
    vexim::Dictionary buildHeaders();
    /// The request ready to be sent; signs it. A body that cannot be serialised raises
    /// NSInternalInconsistencyException.
    vexim::URLRequest urlRequest();

    // Sending. Each keeps the request and the callbacks alive until it ends. Call from any thread.

    /// Sends and retries. `completion` runs once on the main queue, with the JSON answer or, if a
    /// success has another body, with its bytes. Mistakes in query or body raise here, before
    /// anything is sent.
    void sendWithCompletion(VXIMResultCompletion completion);

    /// Streams a body to the server and returns the started task. It is retried like
    /// `sendWithCompletion`, but never after the first progress report: a body that was started
    /// cannot be repeated. If the task is cancelled, `completion` is never called; if `transfer` is
    /// cancelled (one handle for one upload), it gets "NSURLErrorDomain" -999. With a handle that
    /// is already cancelled nothing starts and the result is nullptr.
    std::shared_ptr<vexim::URLSessionTask> uploadWithNewBodyStreamBlock(
        VXIMNewBodyStreamBlock newBodyStream, VXIMProgress progress,
        VXIMResultCompletion completion, std::shared_ptr<VXIMTransfer> transfer = nullptr);

    /// Streams the answer into the stream that `newOutputStream` returns. The result is the target
    /// path. Retries and cancellation work as for uploads.
    std::shared_ptr<vexim::URLSessionTask> downloadWithOutputStreamBlock(
        VXIMNewOutputStreamBlock newOutputStream, VXIMProgress progress,
        VXIMResultCompletion completion, std::shared_ptr<VXIMTransfer> transfer = nullptr);

    /// Downloads to the file at `path`, which is the result. The bytes are written to a temporary
    /// file in the same folder, which is renamed when the answer is complete. So `path` is never a
    /// partial file, and after a failure the temporary file is removed. If the file cannot be
    /// written, nothing is sent. The error is `VXErrorDomain` 100, not temporary, and the file's
    /// error is the underlying one.
    void downloadToPath(std::string path, VXIMProgress progress, VXIMResultCompletion completion,
                        std::shared_ptr<VXIMTransfer> transfer = nullptr);

    /// Counts a retry and runs `retry` on the main queue in 1 to 2 seconds.
    void makeDelayedRetry(std::function<void()> retry);

    bool initialise();

private:
    std::shared_ptr<VXIMRequest> self() { return sharedAs<VXIMRequest>(); }
    /// Whether `error` is marked temporary and not caused by a file, attempts are left, and the
    /// body can be sent from its start.
    bool shouldRetry(const vexim::ErrorPtr& error) const;
    /// Runs `again` after the delay. If it raises, the operation ends through `completion`, because
    /// nobody could catch it.
    void retry(std::function<void()> again, VXIMResultCompletion completion);
    /// As `downloadWithOutputStreamBlock`. nullopt lets the manager choose the target path.
    std::shared_ptr<vexim::URLSessionTask> download(VXIMNewOutputStreamBlock newOutputStream,
                                                    VXIMProgress progress,
                                                    VXIMResultCompletion completion,
                                                    std::shared_ptr<VXIMTransfer> transfer,
                                                    std::optional<std::string> targetPath);
    /// Passes on reports. The first one forbids retries, because a body that was started cannot be
    /// repeated.
    VXIMProgress progressThatEndsRetries(VXIMProgress progress);
    /// The end of one attempt at a transfer: tries again with `again`, or calls the caller's
    /// completion.
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
