#ifndef VEXIM_C_H
#define VEXIM_C_H

// The library for any language: five functions that take and return JSON.
//
//     vexim_client client = vexim_create(
//         "{\"appId\": \"app\", \"clientKey\": \"key\", \"installationId\": \"device\"}");
//     vexim_send(client,
//                "{\"@op\": \"loginWithUserId\", \"userId\": \"alice\", \"@extra\": 1}");
//     for (;;) {
//         const char* text = vexim_receive(client, 10);
//         if (text != NULL) puts(text);  // {"@type":"answer","@extra":1,"result":true}, …
//     }
//
// docs/c-interface.md describes the texts and lists the operations; vexim-api.json describes them
// as a JSON Schema. All texts are UTF-8 and end with a zero byte. No function keeps a pointer that
// it is given.
//
// Threads: call any function on any thread, at any time. The library never calls into the program:
// answers and events wait until vexim_receive takes them. It runs its own threads, with all signals
// blocked.
//
// fork: clients do not survive a fork. In the child every handle counts as gone and vexim_create
// returns 0, until the child calls exec. exec closes all descriptors.

#include <stdint.h>

#if defined(__GNUC__)
#define VEXIM_C_EXPORT __attribute__((visibility("default")))
#else
#define VEXIM_C_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/// The handle of a client. 0 is never a client, and no number is used twice in a process. It is
/// safe to pass any other number, or the handle of a freed client: below, this is "a handle that is
/// gone".
typedef int64_t vexim_client;

/// Makes a client, which connects when it logs in. `configuration` is a JSON object with "appId",
/// "clientKey", "installationId", "socketURL", "nsp" and the options of the connection; NULL counts
/// as "{}".
///
/// An unusable configuration still gives a handle. vexim_receive then returns the error first, and
/// every request is answered with that error. Returns 0 only if the process is out of memory or
/// threads, is exiting, or was forked (see above).
VEXIM_C_EXPORT vexim_client vexim_create(const char* configuration);

/// Sends a request: {"@op": "sendMessageToFriend", "friendId": "bob", "message": {"text": "hello"},
/// "@extra": anything}. It returns at once. vexim_receive returns the answer, with the same
/// "@extra". There is exactly one answer for each request, even if it is not JSON or the client is
/// freed meanwhile. Requests start in the order in which they were sent. NULL counts as an empty
/// text. With a handle that is gone this does nothing.
VEXIM_C_EXPORT void vexim_send(vexim_client client, const char* request);

/// Returns the next answer or event, in the order in which they happened. Waits for `seconds` at
/// most, and returns NULL when this time is over. 0, a negative number and NaN mean not to wait. A
/// signal does not end the wait.
///
/// The text is valid until the calling thread calls vexim_receive again. Only one thread at a time
/// should receive for a client. With two, each text goes to one of them, but you cannot know to
/// which.
///
/// After vexim_free it returns the remaining answers, without waiting, and then NULL.
VEXIM_C_EXPORT const char* vexim_receive(vexim_client client, double seconds);

/// Runs an operation that needs no network, such as {"@op": "descriptor"}, and returns its answer.
/// Returns NULL only if the process is out of memory. If the operation needs a client and the
/// handle is gone, the answer is an error; others, such as "version", also work with 0. The text is
/// valid until the calling thread calls vexim_execute again.
VEXIM_C_EXPORT const char* vexim_execute(vexim_client client, const char* request);

/// Frees a client. Closes its connection without a logout, cancels its transfers, drops the events
/// that were not received, and answers every open request with an error. vexim_receive with the
/// same handle still returns these answers. A vexim_receive that is waiting returns. This closes
/// the descriptor, so take it out of your event loop first. Freeing a handle that is gone does
/// nothing.
VEXIM_C_EXPORT void vexim_free(vexim_client client);

#ifdef __cplusplus
}
#endif

#endif
