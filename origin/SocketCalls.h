// The socket calls below the HTTP server, in one place: each system has a source file of its own.
#pragma once

#include <httplib.h>

namespace kvmpd::origin {

// Lets a port be used again right after its last server has ended, but never by two servers at a time: with the HTTP
// library's own default a second origin would start and take some of the first one's requests instead of failing.
void PrepareListener(socket_t socket);

// Makes an accepted connection send small replies at once, and never wait in SendSome.
void Prepare(socket_t socket);

// Whether bytes (or the end) can be read, or bytes sent, within the limit.
bool WaitReadable(socket_t socket, int limitMs);
bool WaitWritable(socket_t socket, int limitMs);

// How many bytes were received; 0 at the end, negative on an error.
ssize_t ReceiveSome(socket_t socket, char* data, size_t size);
// How many bytes were taken, at once: a client that does not read must not hold its thread in here past its limit. 0
// when there is no room now, negative on an error. Raises no signal.
ssize_t SendSome(socket_t socket, const char* data, size_t size);

// Ends both directions: calls that wait return.
void ShutDown(socket_t socket);
void Close(socket_t socket);

}  // namespace kvmpd::origin
