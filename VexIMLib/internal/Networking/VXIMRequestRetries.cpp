// How a request is sent: one task for each attempt, at most three attempts, one call of the
// caller's completion.

#include <chrono>
#include <cstdint>
#include <utility>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/Random.h"
#include "VexIMLib/VXIMClientConfiguration.h"
#include "VexIMLib/internal/Configuration/Meter.h"
#include "VexIMLib/internal/Networking/NetworkingErrors.h"
#include "VexIMLib/internal/Networking/VXIMRequest.h"
#include "VexIMLib/internal/Networking/VXIMURLSessionManager.h"
#include "VexIMLib/internal/Platform/Files/InputStream.h"

namespace {

/// 1 to 2 seconds, from 16 random bits.
std::chrono::nanoseconds retryDelay(std::uint32_t random) {
    const double seconds = static_cast<double>(random & 0xFFFF) / 65535.0 + 1.0;
    return std::chrono::nanoseconds(static_cast<std::int64_t>(seconds * 1e9));
}

/// Whether another attempt would end in the same way, because the cause is on our side: a file that
/// cannot be read or written or has changed meanwhile, a certificate or a handshake that we do not
/// accept.
bool isOurs(const vexim::ErrorPtr& cause) {
    if (!cause) return false;
    if (cause->domain() != vexim::kURLErrorDomain)
        return cause->domain() == vexim::kCocoaErrorDomain;
    const auto code = cause->code();
    return code == vexim::URLErrorRequestBodyStreamExhausted ||
           (code <= vexim::URLErrorSecureConnectionFailed &&
            code >= vexim::URLErrorServerCertificateNotYetValid);
}

}  // namespace

void VXIMRequest::sendWithCompletion(VXIMResultCompletion completion) {
    const auto& manager = VXIMURLSessionManager::defaultManager();
    auto task = manager->dataTaskWithRequest(
        *this, [self = self(), completion = std::move(completion)](const vexim::Value& result,
                                                                   const vexim::ErrorPtr& error) {
            if (self->shouldRetry(error)) {
                return self->retry([self, completion] { self->sendWithCompletion(completion); },
                                   completion);
            }
            if (!completion) return;
            if (error) {
                completion(nullptr, error);
            } else {
                completion(result, nullptr);
            }
        });
    task->resume();
}

void VXIMRequest::makeDelayedRetry(std::function<void()> retry) {
    ++retryCount_;
    if (const auto configuration = vxim_configuration.get()) {
        if (const auto meter = vexim::Meter::of(std::as_const(*configuration).dictionary()))
            meter->add(vexim::Metric::RequestRetries, 0);
    }
    vexim::MainQueue::shared().after(retryDelay(vexim::Random::shared()->next32()),
                                     std::move(retry));
}

bool VXIMRequest::shouldRetry(const vexim::ErrorPtr& error) const {
    if (!vexim::rest::isMarkedTemporary(error) || retryCount_ >= kMaxRetries ||
        isOurs(error->underlyingError()))
        return false;
    // Another attempt could only report that the body cannot be read again, which would hide the
    // real error.
    return !body_.isNil() || !bodyStream_ || bodyStream_->isSendable();
}

void VXIMRequest::retry(std::function<void()> again, VXIMResultCompletion completion) {
    makeDelayedRetry([again = std::move(again), completion = std::move(completion)] {
        vexim::ErrorPtr raised;
        try {
            again();
        } catch (const vexim::Exception& exception) {
            raised = vexim::rest::raised(exception);
        }
        if (raised && completion) completion(nullptr, raised);
    });
}
