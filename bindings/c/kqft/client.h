#ifndef KQFT_CLIENT_H
#define KQFT_CLIENT_H

#include "codes.h"
#include "result.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kqft_client kqft_client;

enum { KQFT_TURN_WAIT = 0, KQFT_TURN_REFUSE = 1, KQFT_TURN_NONE = 2 };

typedef struct kqft_client_options {
  uint32_t size;
  int32_t port;               ///< 0: 9999
  const char* host;           ///< dotted address or name; "a,b:9998" of several for one storage
  const char* bind_address;   ///< local address to connect from
  const char* log_directory;  ///< NULL: no logs
  const char* bandwidth;      ///< most data a second, "10M" or "08:00,512k 19:00,off"
  const char* purpose;        ///< what others who wait are told of this program
  /// A server takes a second connection of one address for the first one come
  /// back. So a client takes its user's turn at that server: it waits for it,
  /// gives up (KQFT_E_SERVER_TAKEN) or, where the host sees to it, takes none.
  int32_t turn;
  int32_t timeout_seconds;  ///< so long a server may be silent; 0: 10 s, 30 s, no limit
} kqft_client_options;

/// What a put, get, verify or watch does; each leaves alone what is not for it.
typedef struct kqft_options {
  uint32_t size;
  int32_t retries;           ///< rounds in a row that may bring no progress; 0: 3, -1: none
  int32_t retry_seconds;     ///< so long they may, however many they are
  int32_t plan_only;         ///< put, get: 1 only finds out what would be moved
  int32_t no_inventory;      ///< put, get: 1 neither goes by it nor writes it
  int32_t checksum;          ///< put, get: 1 compares files by their bytes, not by their time
  int32_t whole;             ///< put: 1 sends every file whole
  int32_t take_over;         ///< put: 1 goes on though somebody else is sending the project
  int32_t overwrite;         ///< get: 1; else a file here that differs becomes NAME~
  int32_t settle_seconds;    ///< watch: so long a file has to be left alone; 0: 10
  const char* project;       ///< put, watch: its name; NULL: that of the directory
  const char* const* files;  ///< put, get: only these below the project
  const char* const* rules;  ///< "- PATTERN" leaves out, "+ PATTERN" does not: rsync's rules
  int32_t file_count;        ///< 0 of `files` that is not NULL: none at all
  int32_t rule_count;
  const char* const* more_paths;  ///< put: beside the one that it is given
  int32_t more_path_count;
  int32_t unused;
} kqft_options;

typedef struct kqft_progress {
  uint32_t size;
  int32_t running;  ///< 1 while an operation runs
  int64_t done;     ///< bytes that are at the other side, kept ones counted
  int64_t total;    ///< bytes of all files
  int64_t moved;    ///< bytes of file data that crossed the network
  int64_t files_done;
  int64_t files_total;
  int64_t file_done;  ///< bytes of the file on its way
  int64_t file_size;
  int64_t silent_ms;  ///< so long nothing has come or left
  double bytes_per_second;
  const char* file;  ///< the one on its way
} kqft_progress;

enum {
  KQFT_NOTICE_WAITING = 1,        ///< an answer is awaited; text: what for
  KQFT_NOTICE_RECONNECTING = 2,   ///< the connection is made again
  KQFT_NOTICE_NOT_CONNECTED = 3,  ///< it could not be; value: the code
  KQFT_NOTICE_RETRYING = 4,       ///< tried again after a pause; value: its milliseconds
  KQFT_NOTICE_LEFT_OUT = 5,       ///< text: what was not sent or looked into, and why
  KQFT_NOTICE_PROBLEM = 6         ///< the same of what should have been
};

/// Each may be NULL. What they are passed lives until they return.
typedef struct kqft_callbacks {
  uint32_t size;
  int32_t unused;
  void* user;
  /// All files are known. @param files, bytes those that are not at the other side
  void (*planned)(void* user, int64_t files, int64_t bytes);
  /// Every few milliseconds while data moves.
  void (*progress)(void* user, const kqft_progress* progress);
  /// A file came to its end, done or given up.
  void (*file)(void* user, const kqft_item* item);
  void (*notice)(void* user, int32_t kind, int32_t value, const char* text);
  /// Of a watch: a round has ended in which something was to be sent.
  void (*round)(void* user, const kqft_summary* summary);
} kqft_callbacks;

/// Makes no connection. @return also KQFT_E_ARGUMENT: host, bandwidth, port, turn
KQFT_C_API int32_t kqft_client_create(const kqft_client_options* options, kqft_client** client);

/// Ends the connection. Nothing may use the handle afterwards.
KQFT_C_API int32_t kqft_client_destroy(kqft_client* client);

/// From now on; NULL: none.
KQFT_C_API int32_t kqft_client_set_callbacks(kqft_client* client, const kqft_callbacks* callbacks);

/// The last result of this handle, and its words: why, and what it is about.
/// They live until the handle's next operation. The thread that uses the handle.
KQFT_C_API int32_t kqft_client_code(const kqft_client* client);
KQFT_C_API const char* kqft_client_words(const kqft_client* client);

/// Every operation connects where no connection stands.
/// Blocks: while others have the turn; 10 s for a connection, up to 30 s for a
///         server that finishes earlier links; so again for each retry.
/// @param retries 0: none
KQFT_C_API int32_t kqft_client_connect(kqft_client* client, int32_t retries, int32_t seconds);

/// Lets others have their turn.
KQFT_C_API int32_t kqft_client_disconnect(kqft_client* client);

/// Ends what runs, with care: what has arrived is kept. Nothing when none runs.
/// Any thread, also in a callback. Does not wait.
KQFT_C_API int32_t kqft_client_cancel(kqft_client* client);

/// How far a put or get is; for hosts without callbacks. Any thread.
/// @param file where the name of the file goes, shortened to `file_bytes`; or NULL
KQFT_C_API int32_t kqft_client_progress(kqft_client* client, kqft_progress* progress, char* file,
                                        int32_t file_bytes);

/// The projects of the server, and all files of one. Entries are kqft_project
/// and kqft_file. Blocks: 30 s; until every directory has been asked for.
/// @return of files: KQFT_E_INCOMPLETE, with a result, where some cannot be seen
KQFT_C_API int32_t kqft_client_projects(kqft_client* client, kqft_result** result);
KQFT_C_API int32_t kqft_client_files(kqft_client* client, const char* project,
                                     kqft_result** result);

/// @param left how many files the server still lists; or NULL
/// Blocks: up to 2 minutes.
KQFT_C_API int32_t kqft_client_delete(kqft_client* client, const char* project, int64_t* left);

/// Sends a directory, or a file into options->project; fetches a project into a
/// directory; compares it with its inventory and with a directory, or NULL. What
/// was interrupted goes on with the next call. Options may be NULL.
/// Blocks: until all is done or given up, or kqft_client_cancel.
/// @param result or NULL; set once it was tried, whatever came of it. Entries
///        are kqft_item, of a verify kqft_verdict
/// @return 1 only where all is whole on both sides, or all is the same; of a plan
///         where it could be made
KQFT_C_API int32_t kqft_client_put(kqft_client* client, const char* path,
                                   const kqft_options* options, kqft_result** result);
KQFT_C_API int32_t kqft_client_get(kqft_client* client, const char* project, const char* into,
                                   const kqft_options* options, kqft_result** result);
KQFT_C_API int32_t kqft_client_verify(kqft_client* client, const char* project, const char* local,
                                      const kqft_options* options, kqft_result** result);

/// Sends what comes into a directory, each file once it was left alone for a
/// while, until kqft_client_cancel. Blocks: until then.
/// @return KQFT_E_CANCELLED; KQFT_FAILED where it makes no sense
KQFT_C_API int32_t kqft_client_watch(kqft_client* client, const char* directory,
                                     const kqft_options* options);

#ifdef __cplusplus
}
#endif

#endif
