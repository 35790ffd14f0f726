#pragma once

#include <memory>

#include "VexIMLib/Foundation/Export.h"

/// A handle by which an application cancels an upload or a download. Make one, pass it to the operation, keep it.
/// One handle serves one transfer; all operations may be called from any thread.
///
///     auto transfer = VXIMTransfer::transfer();
///     message->downloadAttachment("photo.png", showPercent, done, transfer);
///     transfer->cancel();  // done(nil, "NSURLErrorDomain" -999), once, on the main queue
class VEXIM_EXPORT VXIMTransfer {
public:
    /// A handle that no transfer has yet.
    static std::shared_ptr<VXIMTransfer> transfer();
    ~VXIMTransfer();
    VXIMTransfer(const VXIMTransfer&) = delete;
    VXIMTransfer& operator=(const VXIMTransfer&) = delete;

    /// Ends the transfer: its completion gets "NSURLErrorDomain" -999. A handle cancelled beforehand ends the transfer that
    /// it is passed to. False when the completion has run already or `cancel` was called before.
    bool cancel();
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
