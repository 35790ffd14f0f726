#pragma once

#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Data.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMCompletions.h"

class VXIMTransfer;

/// Shortcuts for REST. Each makes a new signed `VXIMRequest` and sends it, with retries.
/// `completion` runs once on the main queue with (result, nullptr) or (nil, error). Call from any
/// thread. Paths are sent unchanged.
///
///     VXIMHTTPRequest::get("/rooms", vexim::Dictionary{{"limit", "20"}},
///                          [](vexim::Value rooms, vexim::ErrorPtr error) { … });
class VXIMHTTPRequest {
public:
    VXIMHTTPRequest() = delete;

    /// `params` holds strings only; anything else raises NSInvalidArgumentException.
    static void get(std::string path, std::optional<vexim::Dictionary> params,
                    VXIMResultCompletion completion);
    /// `body` is an array, a dictionary or nil, here and below. A body that cannot be written as
    /// JSON raises NSInternalInconsistencyException.
    static void post(std::string path, vexim::Value body, VXIMResultCompletion completion);
    static void put(std::string path, vexim::Value body, VXIMResultCompletion completion);
    static void deletePath(std::string path, vexim::Value body, VXIMResultCompletion completion);

    /// Uploads the file as an attachment. The result is a dictionary with "imgUrl" and perhaps
    /// "thumbnail", or another dictionary that the service sent, or nil. If the file cannot be
    /// read, an empty form is sent, and the service's answer decides. With a `transfer` the upload
    /// can be cancelled: the completion then gets "NSURLErrorDomain" -999.
    static void uploadFileAtPath(std::string path, VXIMProgress progress,
                                 VXIMResultCompletion completion,
                                 std::shared_ptr<VXIMTransfer> transfer = nullptr);
    /// The same for bytes, which are first hashed and written, on a background thread, to a file
    /// named by their MD5 in the staging directory. That directory must exist.
    static void uploadData(vexim::Data bytes, VXIMProgress progress,
                           VXIMResultCompletion completion,
                           std::shared_ptr<VXIMTransfer> transfer = nullptr);
};
