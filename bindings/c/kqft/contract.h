#ifndef KQFT_CONTRACT_H
#define KQFT_CONTRACT_H

#include "codes.h"
#include "result.h"

#ifdef __cplusplus
extern "C" {
#endif

/// The client of the protocol itself, for hosts that name files on both sides
/// themselves: one connection, at most one transfer at a time, which runs on a
/// thread of the library's. Nothing is tried again, and that a file is as long on
/// both sides is for the host to ask. Whole projects are safer by kqft_client.
///
/// After KQFT_E_TIMEOUT, -19, -21, -22, -25, -26, -27 or -35 a late answer may be
/// taken for the next one: wait, disconnect, connect.
typedef struct kqft_contract kqft_contract;

/// Where a transfer stands.
typedef struct kqft_contract_state {
  uint32_t size;
  int32_t finished;   ///< 1: its worker has ended; 0 before the first transfer
  int32_t connected;  ///< 0 as soon as the link is lost
  int32_t unused;
  int64_t record;     ///< which file of the request is in hand, from 0
  int64_t file_done;  ///< bytes of it that are over, kept ones counted
  int64_t file_size;
  int64_t done;  ///< bytes of all files
  int64_t total;
  double share;  ///< 0 to 1; above where more came than was announced
} kqft_contract_state;

/// A file of a request, or an entry of a list.
typedef struct kqft_record {
  uint32_t size;
  int32_t status;     ///< of a request: 1, or the code that the file ended with
  const char* local;  ///< the file here; of a list the short name
  const char* name;   ///< its full name at the server; of a project when it was made
  int64_t bytes;
} kqft_record;

/// A part of a measurement file that the server has lost.
typedef struct kqft_range {
  uint32_t size;
  int32_t unused;
  int64_t position;
  int64_t bytes;
} kqft_range;

/// @param bind_address  local address to connect from; NULL: any
/// @param log_directory NULL: no logs
KQFT_C_API int32_t kqft_contract_create(const char* bind_address, const char* log_directory,
                                        kqft_contract** contract);

/// Ends link and transfer. Blocks: up to about 5 s.
KQFT_C_API int32_t kqft_contract_destroy(kqft_contract* contract);

/// Connects, unless a connection to the same place stands, and waits until the
/// server answers: for about 10 s it does not, where it still ends a link of ours.
/// @param patience_ms how long to wait for that; 0: not at all
/// Blocks: up to 10 s more than that.
KQFT_C_API int32_t kqft_contract_connect(kqft_contract* contract, const char* host, int32_t port,
                                         int32_t patience_ms);

/// Cuts the link. A transfer ends by itself: wait for it.
KQFT_C_API int32_t kqft_contract_disconnect(kqft_contract* contract);

/// Ends the link such that the server is free at once after an upload.
/// @param name of a file that it holds
KQFT_C_API int32_t kqft_contract_leave(kqft_contract* contract, const char* name);

/// The server's project directory, which full names begin with. It lives until
/// the next call. Blocks: up to 5 s.
KQFT_C_API int32_t kqft_contract_directory(kqft_contract* contract, const char** directory);

/// Entries are kqft_record. Block: up to 30 s.
KQFT_C_API int32_t kqft_contract_projects(kqft_contract* contract, kqft_result** result);
KQFT_C_API int32_t kqft_contract_files(kqft_contract* contract, const char* project,
                                       kqft_result** result);

/// @return also KQFT_E_DELETE_REFUSED; 1 as well when there was no such project
/// Blocks: up to 60 s.
KQFT_C_API int32_t kqft_contract_delete(kqft_contract* contract, const char* project);

/// How many bytes the server holds of a file; 0 also of none. While no transfer
/// runs. Blocks: up to 30 s.
KQFT_C_API int32_t kqft_contract_size(kqft_contract* contract, const char* name, int64_t* bytes);

/// What the server misses of a measurement file; entries are kqft_range. While no
/// transfer runs. Blocks: up to 10 s.
KQFT_C_API int32_t kqft_contract_lost(kqft_contract* contract, const char* name,
                                      kqft_result** result);

/// Where downloads go: their local names are appended to it.
KQFT_C_API int32_t kqft_contract_set_directory(kqft_contract* contract, const char* directory);

/// Start to send or fetch files. The arrays are copied.
/// @param local files here; of a download their names below the directory
/// @param names full names at the server
/// @return 1: it runs, kqft_contract_wait tells how it ended
/// Blocks: up to 15 s.
KQFT_C_API int32_t kqft_contract_upload(kqft_contract* contract, const char* const* local,
                                        const char* const* names, int32_t count);
KQFT_C_API int32_t kqft_contract_download(kqft_contract* contract, const char* const* local,
                                          const char* const* names, int32_t count);

/// Waits for the end of a transfer that was started. Any thread, beside others.
/// @return 1, or the first failure; also -14: the link is gone
KQFT_C_API int32_t kqft_contract_wait(kqft_contract* contract);

/// Any thread, never blocks.
KQFT_C_API int32_t kqft_contract_progress(kqft_contract* contract, kqft_contract_state* state);

/// The files of the last request with their status, as kqft_record. A stop and a
/// lost link leave 1 behind. Any thread.
KQFT_C_API int32_t kqft_contract_statuses(kqft_contract* contract, kqft_result** result);

/// Asks the transfer to stop; what has arrived stays. Not for the upload of a
/// measurement file whose gaps are being filled: disconnect does that. Wait for its
/// end afterwards.
/// @return 1: it stops, or none was running; 0: nothing confirmed it in 10 s
KQFT_C_API int32_t kqft_contract_stop(kqft_contract* contract);

KQFT_C_API int32_t kqft_result_record(const kqft_result* result, int64_t index, kqft_record* out);
KQFT_C_API int32_t kqft_result_range(const kqft_result* result, int64_t index, kqft_range* out);

#ifdef __cplusplus
}
#endif

#endif
