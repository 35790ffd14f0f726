#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "VexIMLib/Foundation/Export.h"

/// The progress of a transfer, in bytes of the body. (An attachment is uploaded in a form, which
/// has a few hundred bytes more than the file.)
struct VXIMTransferProgress {
    /// sent or received so far; from 0 again after a redirection
    std::int64_t bytes = 0;
    /// in all; nullopt if unknown, as for a download whose length the server does not announce
    std::optional<std::int64_t> total;
};

/// Receives the progress of a transfer, any number of times.
using VXIMTransferProgressBlock = std::function<void(VXIMTransferProgress progress)>;

/// A handle to cancel an upload or a download, or to follow its progress in bytes. Make one, pass
/// it to the operation, and keep it. Use each handle for one transfer only. All functions may be
/// called from any thread.
///
///     auto transfer = VXIMTransfer::transfer();
///     transfer->setProgress([](VXIMTransferProgress progress) { … });
///     message->downloadAttachment("photo.png", showPercent, done, transfer);
///     transfer->cancel();  // done(nil, "NSURLErrorDomain" -999), once, on the main queue
class VEXIM_EXPORT VXIMTransfer {
public:
    /// Makes a new handle.
    static std::shared_ptr<VXIMTransfer> transfer();
    ~VXIMTransfer();
    VXIMTransfer(const VXIMTransfer&) = delete;
    VXIMTransfer& operator=(const VXIMTransfer&) = delete;

    /// Cancels the transfer: its completion gets "NSURLErrorDomain" -999. If you cancel a handle
    /// before passing it on, the operation ends with that error. Returns false if the completion
    /// has already run, or if the transfer was already cancelled.
    bool cancel();
    /// Calls `progress` on the main queue whenever the operation reports its percentage. Set it
    /// before you pass the handle on. It is released when the transfer has ended. An empty one does
    /// nothing.
    void setProgress(VXIMTransferProgressBlock progress);

    /// Whether `cancel` was called in time.
    bool isCancelled() const;
    /// Whether the completion has run or is running.
    bool isFinished() const;

private:
    friend class VXIMTransferStages;  // the library's side of the handle
    VXIMTransfer();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
