#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "VexIMLib/Foundation/Export.h"

/// How far a transfer has come, in bytes of the body that travels. (An attachment goes up in a
/// form, which has a few hundred bytes more than the file.)
struct VXIMTransferProgress {
    /// sent or received so far; from 0 again after a redirection
    std::int64_t bytes = 0;
    /// of all; nullopt when it is unknown, as for a download whose length is not announced
    std::optional<std::int64_t> total;
};

/// Hears how a transfer goes, any number of times.
using VXIMTransferProgressBlock = std::function<void(VXIMTransferProgress progress)>;

/// A handle by which an application cancels an upload or a download, or hears of its bytes. Make
/// one, pass it to the operation, keep it. One handle serves one transfer; all operations may be
/// called from any thread.
///
///     auto transfer = VXIMTransfer::transfer();
///     transfer->setProgress([](VXIMTransferProgress progress) { … });
///     message->downloadAttachment("photo.png", showPercent, done, transfer);
///     transfer->cancel();  // done(nil, "NSURLErrorDomain" -999), once, on the main queue
class VEXIM_EXPORT VXIMTransfer {
public:
    /// A handle that no transfer has yet.
    static std::shared_ptr<VXIMTransfer> transfer();
    ~VXIMTransfer();
    VXIMTransfer(const VXIMTransfer&) = delete;
    VXIMTransfer& operator=(const VXIMTransfer&) = delete;

    /// Ends the transfer: its completion gets "NSURLErrorDomain" -999. A handle cancelled
    /// beforehand ends the transfer that it is passed to. False when the completion has run already
    /// or `cancel` was called before.
    bool cancel();
    /// Has `progress` called on the main queue whenever the operation reports its percents, beside
    /// those. Set it before the handle is passed on. It is let go when the transfer has ended. An
    /// empty one hears nothing.
    void setProgress(VXIMTransferProgressBlock progress);

    /// Whether `cancel` was called in time.
    bool isCancelled() const;
    /// Whether the completion has run, or is running.
    bool isFinished() const;

private:
    friend class VXIMTransferStages;  // the library's side of the handle
    VXIMTransfer();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
