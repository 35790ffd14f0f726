#pragma once

#include <cstdint>

#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"

// Every error that the library makes, by domain and code. docs/guide/errors.md has them all in one
// table, including those of URL loading, files and the async styles.

/// Domain of the errors that the client and the resources make; the codes are below. A refused
/// login is in this domain too, with the service's own code.
VEXIM_EXPORT extern const char* const VXIMErrorDomain;
/// Codes in `VXIMErrorDomain` that are the library's own.
enum VXIMErrorCode : std::int64_t {
    /// a message has no receiver, or the connection did not accept it; the description says why
    VXIMErrorCannotSend = 1,
    /// the service's answer cannot be turned into the requested object
    VXIMErrorUnusableAnswer = 2,
    /// the operation needs the passenger's id
    VXIMErrorPassengerWithoutId = 5004,
};

/// Domain of the errors of REST requests. The code is the service's own (above 0), or the one
/// below.
VEXIM_EXPORT extern const char* const VXErrorDomain;
/// The code in `VXErrorDomain` that is the library's own.
enum VXErrorCode : std::int64_t {
    VXErrorNoUsableAnswer = 100,  ///< no usable answer came; the underlying error says why
};

/// Domain of the errors of the live connection, which `VXIMClientConnectionErrorNotification`
/// reports. The code is a `VXIMConnectionErrorKind`.
VEXIM_EXPORT extern const char* const VXIMConnectionErrorDomain;
/// Codes in `VXIMConnectionErrorDomain`.
enum VXIMConnectionErrorKind : std::int64_t {
    /// none of the kinds below
    VXIMConnectionErrorOther = 0,
    /// the address is missing, has no host, or does not begin with http, https, ws or wss
    VXIMConnectionErrorBadAddress = 1,
    /// the host name does not exist, or the name lookup failed
    VXIMConnectionErrorHostNotFound = 2,
    /// nothing listens there, there is no route, or a gateway says that the server is down
    VXIMConnectionErrorUnreachable = 3,
    /// no answer in time, to the connect, the join, or a heartbeat
    VXIMConnectionErrorTimedOut = 4,
    /// TLS failed, or the certificate is not accepted
    VXIMConnectionErrorNotSecure = 5,
    /// the proxy refused the connection, or this kind of proxy is not supported
    VXIMConnectionErrorProxy = 6,
    /// the URL does not belong to a Socket.IO server
    VXIMConnectionErrorNotSocketIO = 7,
    /// the server refused the connection or the namespace
    VXIMConnectionErrorRefused = 8,
    /// the server sent something that the protocol does not allow
    VXIMConnectionErrorProtocolFault = 9,
    /// a message, an answer, a queue or the login's parameters are too long
    VXIMConnectionErrorLimitPassed = 10,
    /// the connection was lost
    VXIMConnectionErrorLost = 11,
    /// the server reported an error; the connection stays open
    VXIMConnectionErrorServerReported = 12,
};

namespace vexim {

struct Notification;

/// Domain of the errors of events that the connection did not send or that got no answer. The
/// underlying error of a `VXIMErrorCannotSend` is in this domain.
inline constexpr const char* kSocketIOErrorDomain = "SocketIOErrorDomain";
/// Codes in `kSocketIOErrorDomain`.
enum SocketIOErrorCode : std::int64_t {
    /// nothing was sent: the namespace is not joined
    SocketIOErrorNotConnected = 1,
    /// the link went down before the answer came
    SocketIOErrorDisconnected = 2,
    /// the peer did not answer in time
    SocketIOErrorAckTimedOut = 3,
    /// over a limit of size, depth or count; or the queue is full, which is marked temporary
    SocketIOErrorTooLarge = 4,
    /// the items hold something that cannot be sent, or the event's name is reserved
    SocketIOErrorNotEncodable = 5,
};

/// Key in an error's user information: true if trying again later may help.
inline constexpr const char* kTemporaryKey = "temporary";

/// Whether trying again later may help even if nobody changes anything: true for no connection, a
/// timeout, a service that is overloaded or down, or a full queue. False for a refusal, a bad
/// address, a bad certificate, a message that is too long, and for nullptr. REST requests that
/// failed for a temporary reason have already been sent again twice. Call from any thread.
VEXIM_EXPORT bool isTemporary(const ErrorPtr& error);

/// The error in a `VXIMClientConnectionErrorNotification`: the last element of its "data". Never
/// nullptr.
VEXIM_EXPORT ErrorPtr connectionError(const Notification& notification);

}  // namespace vexim
