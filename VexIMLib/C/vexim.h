#ifndef VEXIM_C_H
#define VEXIM_C_H

// The library for any language: five functions that take and give JSON.
//
//     vexim_client client = vexim_create("{\"appId\": \"app\", \"clientKey\": \"key\",
//     \"installationId\": \"device\"}"); vexim_send(client, "{\"@op\": \"loginWithUserId\",
//     \"userId\": \"alice\", \"@extra\": 1}"); for (;;) {
//         const char* text = vexim_receive(client, 10);
//         if (text != NULL) puts(text);    // {"@type":"answer","@extra":1,"result":true}, and so
//         on
//     }
//
// docs/c-interface.md tells what the texts look like and lists the operations; vexim-api.json
// describes them as a JSON Schema. All texts are UTF-8 that ends with a zero byte, and none of the
// functions keeps what it is given.
//
// Threads: every function may be called on any thread, at any time. The library calls nothing of
// the program's: answers and events wait until vexim_receive takes them. It has threads of its own,
// which take no signals.
//
// fork: the child of a process that has made a client has no clients. There every handle counts as
// gone and vexim_create gives 0, until the child has called exec. All descriptors are closed by
// exec.

#include <stdint.h>

#if defined(__GNUC__)
#define VEXIM_C_EXPORT __attribute__((visibility("default")))
#else
#define VEXIM_C_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/// Names a client. 0 is never one, and no number is used twice in a process. A number that names no
/// client any more, or never did, is safe to use: it is called a handle that is gone.
typedef int64_t vexim_client;

/// Makes a client, which connects when it logs in. `configuration` is a JSON object with "appId",
/// "clientKey", "installationId", "socketURL", "nsp" and the options of the connection; NULL counts
/// as "{}".
///
/// A configuration that cannot be used still gives a handle: the first that it receives is the
/// error, and every request is answered with that error. 0 only when the process is out of memory
/// or threads, is exiting, or was forked (see above).
VEXIM_C_EXPORT vexim_client vexim_create(const char* configuration);

/// Sends a request: {"@op": "sendMessageToFriend", "friendId": "bob", "message": {"text": "hello"},
/// "@extra": anything}. It returns at once. The answer comes by vexim_receive with the same
/// "@extra": exactly one for each request, also for one that is not JSON, and when the client is
/// freed meanwhile. Requests begin in the order in which they were sent. With a handle that is gone
/// it does nothing.
VEXIM_C_EXPORT void vexim_send(vexim_client client, const char* request);

/// The next answer or event, in the order in which things happened; waits for `seconds` at most (0:
/// does not wait; negative or not a number: 0). NULL when that time is over. A signal does not end
/// the wait.
///
/// The text is valid until the calling thread calls vexim_receive again. One thread at a time
/// should receive for a client: two get every text once, but nobody knows which.
///
/// After vexim_free it gives the answers that are left, without waiting, and then NULL.
VEXIM_C_EXPORT const char* vexim_receive(vexim_client client, double seconds);

/// Runs at once what needs no network, such as {"@op": "descriptor"}, and gives its answer, never
/// NULL but in a process that is out of memory. What needs a client is answered with an error when
/// the handle is gone; "version" and the like may be asked with 0. The text is valid until the
/// calling thread calls vexim_execute again.
VEXIM_C_EXPORT const char* vexim_execute(vexim_client client, const char* request);

/// Ends a client: cuts its connection without a logout, cancels its transfers, drops the events
/// that nobody has received, and answers every request that is still open with an error, which
/// vexim_receive goes on to give with the same number. A vexim_receive that is waiting returns.
/// Closes the descriptor: take it out of your event loop before. Freeing a handle that is gone does
/// nothing.
VEXIM_C_EXPORT void vexim_free(vexim_client client);

#ifdef __cplusplus
}
#endif

#endif
