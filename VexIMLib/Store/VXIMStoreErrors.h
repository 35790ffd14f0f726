#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Export.h"

/// Domain of the errors of a message store; the codes are below. If SQLite or the system caused it,
/// the underlying error has the details ("SQLiteErrorDomain" with the extended result code, or
/// "NSPOSIXErrorDomain"). An operation that fails changes nothing.
VEXIM_EXPORT extern const char* const VXIMStoreErrorDomain;

/// Codes in `VXIMStoreErrorDomain`. Any operation may give Closed, Damaged, Locked or Failed, and
/// any that writes may give DiskFull or ReadOnly as well. Operations that give other codes say so.
enum VXIMStoreErrorCode : std::int64_t {
    /// the system or SQLite failed in some other way
    VXIMStoreErrorFailed = 1,
    /// the store was closed before, or this process is a forked child of the one that opened it
    VXIMStoreErrorClosed = 2,
    /// the folder is missing or belongs to another user, or the path is not a file
    VXIMStoreErrorCannotOpen = 3,
    /// a newer version of the library wrote the file; it is not changed
    VXIMStoreErrorNewer = 4,
    /// the file is damaged; it was set aside, and a new one replaces it
    VXIMStoreErrorDamaged = 5,
    /// the disk is full; nothing was changed
    VXIMStoreErrorDiskFull = 6,
    /// the file or its folder cannot be written, or the store was opened read-only
    VXIMStoreErrorReadOnly = 7,
    /// another program has opened the file; temporary (`vexim::isTemporary`)
    VXIMStoreErrorLocked = 8,
    /// the file belongs to another user or another service
    VXIMStoreErrorOtherOwner = 9,
    /// there is no such message
    VXIMStoreErrorNotFound = 10,
    /// the message has no conversation, or its payload cannot be written as JSON
    VXIMStoreErrorUnusable = 11,

    // The codes of unsent messages and of the outbox.
    /// the service did not send the message back and does not have it
    VXIMStoreErrorNotAccepted = 20,
    /// the connection was lost before the echo came, and there is no history to check
    VXIMStoreErrorFateUnknown = 21,
    /// the message has waited longer than `longestWait`
    VXIMStoreErrorTooOld = 22,
    /// `mostUnsent` messages are waiting already
    VXIMStoreErrorOutboxFull = 23,
};
