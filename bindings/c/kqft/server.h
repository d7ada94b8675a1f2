#ifndef KQFT_SERVER_H
#define KQFT_SERVER_H

#include "codes.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A data server in this process. It writes a line on standard output for each
/// client that comes and goes. The protocol has no authentication, and a request
/// may name any path that this process can reach.
typedef struct kqft_server kqft_server;

typedef struct kqft_server_options {
  uint32_t size;
  int32_t port;                ///< 0 picks a free one; kqft_server_port tells
  const char* directory;       ///< of the projects; exists, and no other server serves it
  const char* listen_address;  ///< NULL: all of this machine
  const char* suffix;          ///< how a project file's name ends; NULL: ".kqsln"
  const char* log_directory;   ///< NULL: no logs
  const char* const* allowed;  ///< "10.1.0.0/16" or an address: only these; none: everyone
  int32_t allowed_count;
  int32_t links_per_address;  ///< most at a time; 0: any number, of 100 in all
  int32_t new_links;          ///< most within new_links_ms; 0: any number
  int32_t new_links_ms;       ///< 0: 1,000
  int32_t no_delete;          ///< 1: projects stay
  int32_t no_durable;  ///< 1 confirms files that a power failure may still take, and is faster
  int32_t events;      ///< how many are kept for kqft_server_next_event; 0: none
  int32_t unused;
} kqft_server_options;

enum {
  KQFT_EVENT_CONNECTED = 1,
  KQFT_EVENT_DISCONNECTED = 2,
  KQFT_EVENT_UPLOADED = 3,  ///< a file has ended, whole (1) or not
  KQFT_EVENT_DOWNLOADED = 4,
  KQFT_EVENT_PROJECTS_LISTED = 5,
  KQFT_EVENT_FILES_LISTED = 6,
  KQFT_EVENT_DELETED = 7,  ///< 1: the project is gone
  KQFT_EVENT_REFUSED = 8   ///< a connection, a file or a deletion
};

typedef struct kqft_server_event {
  uint32_t size;
  int32_t kind;
  int32_t code;          ///< how it ended
  int32_t client_port;   ///< of the link
  const char* address;   ///< of the client, dotted
  const char* path;      ///< file, project, or ""; any bytes, as the client called it
  int64_t bytes;         ///< of the file, moved on this link
  int64_t milliseconds;  ///< since the transfer, or the link, began
  int64_t lost;          ///< events before this one that were not kept
} kqft_server_event;

/// Starts to listen. Blocks: not noticeably.
/// @return also KQFT_E_DIRECTORY; KQFT_E_LISTEN; KQFT_E_ARGUMENT: port, allowed, a
///         negative number
KQFT_C_API int32_t kqft_server_start(const kqft_server_options* options, kqft_server** server);

/// @return the port, 0 once it has stopped, or KQFT_E_NULL. Any thread.
KQFT_C_API int32_t kqft_server_port(const kqft_server* server);

/// The oldest event that is kept. Its strings live until the next call. One
/// thread at a time, beside the one that stops.
/// Blocks: up to that long, until kqft_server_stop; what is kept can be had then.
/// @param milliseconds negative: for ever
/// @return also KQFT_E_NO_EVENT
KQFT_C_API int32_t kqft_server_next_event(kqft_server* server, int32_t milliseconds,
                                          kqft_server_event* event);

/// Closes every link and stops all work; for good.
/// Blocks: 20 ms for each client that was there, 5 s for one that was cut off
///         while it sent.
KQFT_C_API int32_t kqft_server_stop(kqft_server* server);

/// Stops and frees the handle, unless a thread waits for events: stop before. The
/// end takes 15 s for each client that was cut off while it sent, else moments.
/// Blocks: until then, but no longer than `milliseconds`; negative: until then.
/// @return KQFT_E_TIMEOUT: it goes on ending by itself. What was received is
///         stored, so a program that cannot wait may end by _Exit, not by exit
KQFT_C_API int32_t kqft_server_destroy(kqft_server* server, int32_t milliseconds);

#ifdef __cplusplus
}
#endif

#endif
