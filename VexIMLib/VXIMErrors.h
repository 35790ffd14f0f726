#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"

// Every error that the library makes, by domain and code. docs/guide/errors.md has them as one
// table, with those of URL loading, files and the async styles.

/// Domain of the errors that the client and the resources make; the codes are below. A refused
/// login is in it, too, with the service's own code.
VEXIM_EXPORT extern const char* const VXIMErrorDomain;
/// Codes in `VXIMErrorDomain` that are the library's own.
enum VXIMErrorCode : std::int64_t {
    /// a message has no receiver, or the connection did not take it; the sentence says why
    VXIMErrorCannotSend = 1,
    /// what the service answered makes no object of the kind that was asked for
    VXIMErrorUnusableAnswer = 2,
    /// the operation needs the passenger's id
    VXIMErrorPassengerWithoutId = 5004,
};

/// Domain of the errors of REST requests: what the service answered (its own code, above 0), or the
/// code below.
VEXIM_EXPORT extern const char* const VXErrorDomain;
/// The code in `VXErrorDomain` that is the library's own.
enum VXErrorCode : std::int64_t {
    VXErrorNoUsableAnswer = 100,  ///< no usable answer came; the underlying error tells why
};

/// Domain of the troubles of the live connection, as `VXIMClientConnectionErrorNotification` tells
/// them. The code is the kind.
VEXIM_EXPORT extern const char* const VXIMConnectionErrorDomain;
/// Codes in `VXIMConnectionErrorDomain`.
enum VXIMConnectionErrorKind : std::int64_t {
    /// of no kind below
    VXIMConnectionErrorOther = 0,
    /// no address, or none that begins with http, https, ws or wss and names a host
    VXIMConnectionErrorBadAddress = 1,
    /// the host's name is not known, or no name could be looked up
    VXIMConnectionErrorHostNotFound = 2,
    /// nobody listens, no route leads there, or a gateway answers for a server that is down
    VXIMConnectionErrorUnreachable = 3,
    /// no answer in time: to the connect, the join, or a heartbeat
    VXIMConnectionErrorTimedOut = 4,
    /// TLS failed, or the certificate is not accepted
    VXIMConnectionErrorNotSecure = 5,
    /// the proxy refused, or is of a kind that is not supported
    VXIMConnectionErrorProxy = 6,
    /// what answers is not a Socket.IO server
    VXIMConnectionErrorNotSocketIO = 7,
    /// the server refused the connection or the namespace
    VXIMConnectionErrorRefused = 8,
    /// the server sent what the protocol does not allow
    VXIMConnectionErrorProtocolFault = 9,
    /// a message, an answer, a queue or the login's parameters are too long
    VXIMConnectionErrorLimitPassed = 10,
    /// the link broke
    VXIMConnectionErrorLost = 11,
    /// the server reports an error; the connection stays
    VXIMConnectionErrorServerReported = 12,
};

namespace vexim {

struct Notification;

/// Domain of what a connection answers to an event that it does not send; beneath a
/// `VXIMErrorCannotSend`.
inline constexpr const char* kSocketIOErrorDomain = "SocketIOErrorDomain";
/// Codes in `kSocketIOErrorDomain`.
enum SocketIOErrorCode : std::int64_t {
    /// nothing was sent: the namespace is not joined
    SocketIOErrorNotConnected = 1,
    /// the link went down before the answer came
    SocketIOErrorDisconnected = 2,
    /// the peer did not answer in time
    SocketIOErrorAckTimedOut = 3,
    /// over a limit of size, depth or count; or of the queue, and then marked temporary
    SocketIOErrorTooLarge = 4,
    /// the items hold what cannot be sent, or the event's name is reserved
    SocketIOErrorNotEncodable = 5,
};

/// Marks, in an error's user information, what may pass: true.
inline constexpr const char* kTemporaryKey = "temporary";

/// Whether the same may succeed later without anybody having mended something: no connection, a
/// timeout, a service that is overloaded or down, a full queue. Not so: a refusal, a bad address, a
/// certificate, a message that is too long. False for nullptr. REST requests that failed for such a
/// reason were sent again already, twice.
VEXIM_EXPORT bool isTemporary(const ErrorPtr& error);

/// The error that a `VXIMClientConnectionErrorNotification` carries: the last element of its
/// "data". Never nullptr.
VEXIM_EXPORT ErrorPtr connectionError(const Notification& notification);

}  // namespace vexim
