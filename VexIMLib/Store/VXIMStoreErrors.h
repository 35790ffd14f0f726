#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Export.h"

/// Domain of what goes wrong in a message store. The codes are below; beneath lies what SQLite
/// ("SQLiteErrorDomain", its extended result code) or the system ("NSPOSIXErrorDomain") said, where
/// it was one of these. After any of them nothing is half-written.
VEXIM_EXPORT extern const char* const VXIMStoreErrorDomain;

/// Codes in `VXIMStoreErrorDomain`. Any operation may end with Closed, Damaged, Locked or Failed,
/// and any that writes with DiskFull or ReadOnly as well; the others are named where they occur.
enum VXIMStoreErrorCode : std::int64_t {
    /// the system refused or SQLite failed in a way that has no code of its own
    VXIMStoreErrorFailed = 1,
    /// the store was closed before, or this process is a forked child of the one that opened it
    VXIMStoreErrorClosed = 2,
    /// the folder is missing or not ours, or what stands at the path is not a file
    VXIMStoreErrorCannotOpen = 3,
    /// a newer version of the library wrote the file; it is left as it is
    VXIMStoreErrorNewer = 4,
    /// the file is damaged; it is set aside, and a fresh one is in its place for what comes next
    VXIMStoreErrorDamaged = 5,
    /// there is no room for the change, which was not made at all
    VXIMStoreErrorDiskFull = 6,
    /// the file or its folder cannot be written, or the store was opened read-only
    VXIMStoreErrorReadOnly = 7,
    /// another program has the file; marked temporary (`vexim::isTemporary`)
    VXIMStoreErrorLocked = 8,
    /// the file belongs to another user or another service
    VXIMStoreErrorOtherOwner = 9,
    /// there is no such message
    VXIMStoreErrorNotFound = 10,
    /// a message has no conversation, or its payload cannot be written as JSON
    VXIMStoreErrorUnusable = 11,

    // Of messages that were not sent, and of what sends them.
    /// the service has neither sent the message back nor keeps it
    VXIMStoreErrorNotAccepted = 20,
    /// the connection was lost before the echo came, and there is no history to look into
    VXIMStoreErrorFateUnknown = 21,
    /// it has waited longer than the limit
    VXIMStoreErrorTooOld = 22,
    /// more would wait than the limit
    VXIMStoreErrorOutboxFull = 23,
};
