#pragma once

/// Results of operations, equal on both sides because answers carry them.
/// 1 is the only success; 0 and everything negative is a failure. The gaps in
/// the numbering stay; -100 is told by the programs only. One list yields names, values and
/// explanations.
///
/// X(name, value, meaning)
#define KQFT_RESULT_CODES(X)                                                               \
  X(RESULT_OK, 1, "success")                                                               \
  X(ERROR_CODE_TIMEOUT, -2, "the server did not answer in time")                           \
  X(ERROR_CODE_SENDERROR, -4, "the request could not be sent")                             \
  X(ERROR_CODE_SERVER_OPENFILE, -7, "the server cannot open the file")                     \
  X(CREATE_FILE_ERROR, -8, "the server cannot create the file")                            \
  X(ERROR_CODE_STOP_SERVICE, -9, "the server is ending this session")                      \
  X(ERROR_CODE_SERVER_WRITE, -10, "the server cannot write the data")                      \
  X(ERROR_CODE_SERVER_DOWNDATA, -11, "refused: the session is sending a download")         \
  X(ERROR_CODE_CLIENT_UPDATA, -12, "refused: the session is receiving an upload")          \
  X(ERROR_CODE_NOT_UPDATA, -13, "data arrived while no upload was prepared")               \
  X(ERROR_CODE_CLIENT_CONNECT, -14, "no connection to the server")                         \
  X(ERROR_CODE_CLIENT_BUSY_UPDATA, -15, "an upload is already running")                    \
  X(ERROR_CODE_CLIENT_BUSY_DOWNDATA, -16, "a download is already running")                 \
  X(ERROR_CODE_CLIENT_OPENFILE, -17, "the local file cannot be opened")                    \
  X(ERROR_CODE_CLIENT_SENDCMD, -18, "a request could not be sent")                         \
  X(ERROR_CODE_WAIT_SERVERRESPOND, -19, "no answer within 10 s")                           \
  X(ERROR_CODE_CLIENT_SENDDATA, -20, "the connection was lost while sending")              \
  X(ERROR_CODE_WAIT_TRANSEND, -21, "the end of the file was not confirmed within 30 s")    \
  X(ERROR_CODE_WAIT_FILESIZE, -22, "no answer about file sizes within 5 s")                \
  X(ERROR_CODE_CLIENT_CREATEFILE, -23, "the local file cannot be created")                 \
  X(ERROR_CODE_CLIENT_SENDFILECMD, -24, "the request for a file could not be sent")        \
  X(ERROR_CODE_WAIT_SERVERRESPOND_DOWN, -25, "no answer about a file within 5 s")          \
  X(ERROR_CODE_DOWN_STALLED, -26, "no data arrived for more than 10 s")                    \
  X(ERROR_CODE_CLIENT_WRITE, -27, "received data could not be written")                    \
  X(ERROR_CODE_SEND_STOPPED, -28, "the server stopped sending before the end of the file") \
  X(ERROR_CODE_TRANS_BUSY, -29, "refused: a transfer is running in this session")          \
  X(ERROR_CODE_LOSTINFO_NOFILE, -30, "the lost-info file does not exist")                  \
  X(ERROR_CODE_LOSTINFO_RECORD, -31, "a lost-info file cannot be loaded")                  \
  X(ERROR_CODE_LOSTINFO_ACCESS, -32, "an operation on a lost-info file failed")            \
  X(ERROR_CODE_CLIENT_SEEK, -33, "the local file cannot be positioned")                    \
  X(ERROR_CODE_CLIENT_READ, -34, "the local file is shorter than expected")                \
  X(ERROR_CODE_GETLOSTINFO, -35, "the missing ranges could not be fetched")                \
  X(ERROR_CODE_LOSTINFO_CONTENT, -36, "the list of missing ranges is malformed")           \
  X(ERROR_CODE_CLIENT_DISKSPACE, -37, "not enough free disk space")                        \
  X(ERROR_CODE_REQUEST_UNKNOWN, -100, "the server does not know this request: it may be older")

enum EResultCode : int {
#define KQFT_RESULT_ENUMERATOR(name, value, meaning) name = (value),
  KQFT_RESULT_CODES(KQFT_RESULT_ENUMERATOR)
#undef KQFT_RESULT_ENUMERATOR
};

/// The meaning of a result as text; "unknown result" for any other value.
constexpr const char* ResultMeaning(int result) {
  switch (result) {
#define KQFT_RESULT_CASE(name, value, meaning) \
  case name:                                   \
    return meaning;
    KQFT_RESULT_CODES(KQFT_RESULT_CASE)
#undef KQFT_RESULT_CASE
    default:
      return "unknown result";
  }
}

/// The name of a result; "" for any other value.
constexpr const char* ResultName(int result) {
  switch (result) {
#define KQFT_RESULT_CASE(name, value, meaning) \
  case name:                                   \
    return #name;
    KQFT_RESULT_CODES(KQFT_RESULT_CASE)
#undef KQFT_RESULT_CASE
    default:
      return "";
  }
}
