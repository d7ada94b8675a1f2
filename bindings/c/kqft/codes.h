#ifndef KQFT_CODES_H
#define KQFT_CODES_H

#include <stdint.h>

/// Set by the library's own build.
#ifndef KQFT_C_API
#define KQFT_C_API
#endif

#define KQFT_VERSION_MAJOR 1
#define KQFT_VERSION_MINOR 0
#define KQFT_VERSION_PATCH 0

#ifdef __cplusplus
extern "C" {
#endif

/// Results.
enum {
  KQFT_OK = 1,                           ///< success
  KQFT_FAILED = 0,                       ///< none of the codes: the handle's words tell
  KQFT_E_TIMEOUT = -2,                   ///< the server did not answer in time
  KQFT_E_SENDERROR = -4,                 ///< the request could not be sent
  KQFT_E_SERVER_OPENFILE = -7,           ///< the server cannot open the file
  KQFT_E_CREATE_FILE = -8,               ///< the server cannot create the file
  KQFT_E_STOP_SERVICE = -9,              ///< the server is ending this session
  KQFT_E_SERVER_WRITE = -10,             ///< the server cannot write the data
  KQFT_E_SERVER_DOWNDATA = -11,          ///< refused: the session is sending a download
  KQFT_E_CLIENT_UPDATA = -12,            ///< refused: the session is receiving an upload
  KQFT_E_NOT_UPDATA = -13,               ///< data arrived while no upload was prepared
  KQFT_E_CLIENT_CONNECT = -14,           ///< no connection to the server
  KQFT_E_CLIENT_BUSY_UPDATA = -15,       ///< an upload is already running
  KQFT_E_CLIENT_BUSY_DOWNDATA = -16,     ///< a download is already running
  KQFT_E_CLIENT_OPENFILE = -17,          ///< the local file cannot be opened
  KQFT_E_CLIENT_SENDCMD = -18,           ///< a request could not be sent
  KQFT_E_WAIT_SERVERRESPOND = -19,       ///< no answer within 10 s
  KQFT_E_CLIENT_SENDDATA = -20,          ///< the connection was lost while sending
  KQFT_E_WAIT_TRANSEND = -21,            ///< the end of the file was not confirmed within 30 s
  KQFT_E_WAIT_FILESIZE = -22,            ///< no answer about file sizes within 5 s
  KQFT_E_CLIENT_CREATEFILE = -23,        ///< the local file cannot be created
  KQFT_E_CLIENT_SENDFILECMD = -24,       ///< the request for a file could not be sent
  KQFT_E_WAIT_SERVERRESPOND_DOWN = -25,  ///< no answer about a file within 5 s
  KQFT_E_DOWN_STALLED = -26,             ///< no data arrived for more than 10 s
  KQFT_E_CLIENT_WRITE = -27,             ///< received data could not be written
  KQFT_E_SEND_STOPPED = -28,             ///< the server stopped sending before the end of the file
  KQFT_E_TRANS_BUSY = -29,               ///< refused: a transfer is running in this session
  KQFT_E_LOSTINFO_NOFILE = -30,          ///< the lost-info file does not exist
  KQFT_E_LOSTINFO_RECORD = -31,          ///< a lost-info file cannot be loaded
  KQFT_E_LOSTINFO_ACCESS = -32,          ///< an operation on a lost-info file failed
  KQFT_E_CLIENT_SEEK = -33,              ///< the local file cannot be positioned
  KQFT_E_CLIENT_READ = -34,              ///< the local file is shorter than expected
  KQFT_E_GETLOSTINFO = -35,              ///< the missing ranges could not be fetched
  KQFT_E_LOSTINFO_CONTENT = -36,         ///< the list of missing ranges is malformed
  KQFT_E_CLIENT_DISKSPACE = -37,         ///< not enough free disk space
  KQFT_E_REQUEST_UNKNOWN = -100,         ///< the server passed the request over: it may be older
  KQFT_E_SERVER_TAKEN = -101,            ///< another program of this user is busy with the server
  KQFT_E_OTHER_STORAGE = -102,           ///< servers of one name have other project directories
  KQFT_E_DELETE_REFUSED = -110,          ///< refused: the server deletes no projects
  // Of this face alone.
  KQFT_E_CANCELLED = -120,   ///< cancelled; what has arrived is kept
  KQFT_E_INCOMPLETE = -121,  ///< it ended, and not everything is whole: the result tells what
  KQFT_E_DIFFERENT = -122,   ///< both sides were compared, and are not the same
  KQFT_E_NULL = -130,        ///< a handle, string or place for a result is missing
  KQFT_E_SIZE = -131,        ///< the size field of a struct is none of this version
  KQFT_E_ARGUMENT = -132,    ///< a value that makes no sense
  KQFT_E_IN_USE = -133,      ///< the handle is in use by another thread, or by the caller
  KQFT_E_MEMORY = -134,      ///< no memory
  KQFT_E_UNEXPECTED = -135,  ///< an error inside of the library
  KQFT_E_KIND = -136,        ///< the result has entries of another kind
  KQFT_E_DIRECTORY = -137,   ///< the directory cannot be used
  KQFT_E_LISTEN = -138,      ///< cannot listen: the port is in use, or the address is not ours
  KQFT_E_NO_EVENT = -139     ///< nothing has happened in that time
};

/// Any thread; never blocks. The texts live for ever.
KQFT_C_API int32_t kqft_version(void);  ///< major * 1,000,000 + minor * 1,000 + patch
KQFT_C_API const char* kqft_version_text(void);
KQFT_C_API const char* kqft_describe(int32_t code);  ///< "unknown result" for any other number

#ifdef __cplusplus
}
#endif

#endif
