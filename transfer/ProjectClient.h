#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "KQFTransferExport.h"
#include "transfer/Filter.h"
#include "transfer/TransferItem.h"
#include "transfer/TransferObserver.h"
#include "transfer/Verdict.h"

/// The server takes a second connection from one address for the first one come
/// back, and the transfer that ran there fails. So a client takes the turn of
/// its user at that server when it connects, and has it until its connection
/// ends; kqft does the same.
enum class ETurn {
  kWait,    ///< as long as another one has it; Cancel ends that
  kRefuse,  ///< not at all: the result is then kServerTaken
  kNone,    ///< connect in any case: the host sees to it
};

/// Where a server is and how to reach it.
struct SServerPlace {
  /// Dotted address or name; or several servers of one storage, "a,b:9998,c", or
  /// a name with several addresses. Of those one is used, which follows from the
  /// project; when it cannot be reached, or says nothing, the next one, also in
  /// the middle of a transfer. All must tell the same project directory: else it
  /// ends with kOtherStorage.
  std::string m_strHost;
  int m_nPort = 9999;
  std::string m_strBindAddress;   ///< local address to connect from; "" for any
  std::string m_strLogDirectory;  ///< where the logs go; "" for that of temporary files
  bool m_bLogs = true;            ///< whether there are any
  ETurn m_eTurn = ETurn::kWait;

  /// So long a server may take for a connection, for its first answer, and be
  /// silent afterwards. 0: 10 s, 30 s, and as long as its answers may take; a
  /// transfer then waits for a silent server as long as the network does.
  int m_nTimeoutSeconds = 0;

  /// How fast data may cross the network, both ways together: "10M" (bytes a
  /// second, by 1024), or by a timetable, "08:00,512k 19:00,off". What
  /// WhyNoBandwidth objects to limits nothing, as does "".
  std::string m_strBandwidth = {};

  std::string m_strPurpose = "another program";  ///< what others who wait are told

  /// For which project the server is chosen; "": that of the first request.
  std::string m_strProject = {};

  /// "HOST:PORT", or "[HOST]:PORT" of IPv6; several as they were named
  std::string Text() const {
    if (m_strHost.find(',') != std::string::npos) return m_strHost;
    const bool isIPv6 = m_strHost.find(':') != std::string::npos;
    return (isIPv6 ? "[" + m_strHost + "]" : m_strHost) + ":" + std::to_string(m_nPort);
  }
};

/// A project in the server's list.
struct SProject {
  std::string m_strName;
  std::int64_t m_llSize = 0;  ///< bytes of all its files
  std::string m_strCreated;   ///< as the server writes it, YYYY-MM-DD_HH-MM-SS
};

/// A file in the server's list of one project.
struct SProjectFile {
  std::string m_strName;    ///< below the project, "/" separating
  std::string m_strServer;  ///< its full name there

  // Of ListAllFiles.
  std::int64_t m_llSize = -1;  ///< bytes; negative when it is not known
  std::int64_t m_llTime = 0;   ///< of the last change, ns since 1970; 0 when it is not known
  std::string m_strDigest;     ///< 32 hexadecimal digits; "" when it is not known
};

/// All files of a project, as far as the server lets them be known.
struct SFileList {
  std::vector<SProjectFile> m_vecFiles;  ///< by their names
  std::string m_strMayHide;  ///< of one without an inventory: what cannot be seen, in words
  bool m_bComplete = true;   ///< false: the observer was told what could not be looked into
};

/// Beside the results of protocol/ResultCodes.h: the server passed the request
/// over, while it answered others.
constexpr int kRequestUnknown = -100;

/// Another program of this user is busy with the server.
constexpr int kServerTaken = -101;

/// Two servers that were named as those of one storage have other project
/// directories.
constexpr int kOtherStorage = -102;

/// Result of DeleteProject: the server does not want to delete it.
constexpr int kDeleteRefused = -110;

/// A result in words, with its number and name.
KQFT_TRANSFER_API std::string DescribeResult(int result);

/// What to send.
struct SPutRequest {
  std::vector<std::string> m_vecPaths;  ///< directories, or files of one project
  std::string m_strProject;             ///< "": each directory becomes the project of its name
  bool m_bPlanOnly = false;             ///< only find out what would be sent
  bool m_bInventory = true;             ///< go by it, write it; false is for measuring
  bool m_bWhole = false;                ///< send every file whole, whatever the server has
  bool m_bChecksum = false;             ///< compare files by their bytes, not by their time
  int m_nRetries = 3;                   ///< rounds in a row that may bring no progress
  int m_nRetrySeconds = 0;              ///< so long they may, however many they are
  bool m_bTakeOver = false;             ///< go on though somebody else is sending the project

  // Of a part of a project; what the server has beyond it is left alone.
  CFilter m_filter;
  std::vector<std::string> m_vecFiles;  ///< files or directories below the one path; none: all
  bool m_bOnlyFiles = false;            ///< m_vecFiles also where there are none

  /// Asked when a file is planned, and again before it is opened to be sent.
  /// @param path of this machine
  /// @return "" or why it is left to a later put
  std::function<std::string(const std::string& path)> m_whyLater;
};

/// What to fetch.
struct SGetRequest {
  std::string m_strProject;
  std::vector<std::string> m_vecFiles;  ///< files or directories of it; none: all
  bool m_bOnlyFiles = false;            ///< m_vecFiles also where there are none
  CFilter m_filter;                     ///< of those; the others are left alone
  std::string m_strInto = ".";          ///< the project becomes a directory in this one
  bool m_bPlanOnly = false;
  bool m_bInventory = true;   ///< go by the project's; false is for measuring
  bool m_bChecksum = false;   ///< compare files that are here by their bytes, not by their time
  bool m_bOverwrite = false;  ///< else a file that is here and differs becomes NAME~
  int m_nRetries = 3;
  int m_nRetrySeconds = 0;  ///< both as above; the first connection counts, too
};

/// What to compare.
struct SVerifyRequest {
  std::string m_strProject;
  std::string m_strLocal;  ///< a directory of this machine to compare as well; "" for none
  CFilter m_filter;        ///< what to compare of either
  int m_nRetries = 3;
  int m_nRetrySeconds = 0;
};

/// What to send while it grows.
struct SWatchRequest {
  SPutRequest m_put;          ///< of one directory; names of files and tries do not count
  int m_nSettleSeconds = 10;  ///< how long a file has to be left alone before it is sent
};

/// What comparing a project came to.
struct KQFT_TRANSFER_API SVerifyResult {
  int m_nCode = 0;       ///< 1; else why it could not be done, 0 for none of the library's reasons
  std::string m_strWhy;  ///< the same in words; "" when it was done
  bool m_bCancelled = false;
  bool m_bCompared = false;    ///< there was an inventory or a directory to compare with
  bool m_bMeanwhile = false;   ///< something was sent while it was compared: do it again
  std::string m_strRemark;     ///< what there is to say of the whole, in words; "" for nothing
  std::size_t m_nLeftOut = 0;  ///< what could not be looked into; the observer was told
  std::vector<SFileVerdict> m_vecFiles;  ///< by their names
  VerdictCounts m_counts = {};
  std::int64_t m_llRead = 0;  ///< bytes that the server was asked for
  double m_dSeconds = 0;

  /// All was compared, and is the same.
  bool IsSame() const;
};

/// What a put or get came to.
struct KQFT_TRANSFER_API STransferResult {
  int m_nCode = 0;       ///< 1; else why it could not begin, 0 for none of the library's reasons
  std::string m_strWhy;  ///< the same in words; "" when it began
  bool m_bCancelled = false;
  std::string m_strProject;  ///< "" when there are several
  std::string m_strOther;    ///< "user@host" who sends a project, where a put gave way to them
  std::vector<STransferItem> m_vecItems;
  std::string m_strInventory;       ///< why it could not be written at the end; "" when it was
  std::size_t m_nOnlyThere = 0;     ///< of a put of directories: files that the projects have more
  std::size_t m_nFilesHealed = 0;   ///< of a put: files damaged at the server that are whole now
  std::size_t m_nBlocksHealed = 0;  ///< of them: those of which only blocks were sent
  std::size_t m_nProblems = 0;      ///< left out although they should have been moved
  std::size_t m_nFiltered = 0;      ///< left out by the filter: files, or directories unseen
  std::int64_t m_llMoved = 0;       ///< bytes of file data that crossed the network
  std::string m_strMayHide;  ///< of a get without an inventory: what cannot be seen, in words
  double m_dSeconds = 0;

  /// Projects of a first put that the server does not list: it goes by files
  /// with a suffix of its choice. They can be fetched all the same.
  std::vector<std::string> m_vecUnlisted;

  /// Everything that was asked for is whole on both sides.
  bool IsDone() const;
};

/// Moves whole projects between this machine and one server, with the care
/// that a person expects: files go in requests of a few, each is looked at
/// when it has ended, what fell short is tried again, and only what is whole
/// on both sides counts as done.
///
///     CProjectClient client({"data.example", 9999, "", "/var/log/app/"});
///     SPutRequest request;
///     request.m_vecPaths = {"/projects/Run7"};
///     return client.Put(request).IsDone() ? 0 : 1;
///
/// Results are those of protocol/ResultCodes.h: 1, or a negative code; -14
/// also when the link went while an answer was awaited, and -100 when a server
/// that answers other questions passed this one over. Nothing is thrown but
/// std::bad_alloc, and nothing is written to the standard streams.
///
/// Threads: one thread at a time uses it; Cancel may come from any.
class KQFT_TRANSFER_API CProjectClient {
 public:
  /// @param observer not owned, outlives the client; null for none
  explicit CProjectClient(SServerPlace place, ITransferObserver* observer = nullptr);
  CProjectClient(const CProjectClient&) = delete;
  CProjectClient& operator=(const CProjectClient&) = delete;

  /// Ends the connection.
  ~CProjectClient();

  /// Connects and waits until the server answers. Every other operation does
  /// so too when no connection stands.
  /// @param retries, seconds as those of a request
  /// @return also kServerTaken
  /// Blocks: while others have the turn; 10 s for a connection, then as long as
  ///         the server finishes what earlier links of this address have left,
  ///         up to 30 s; or as the place says. So again for each retry.
  int Connect(int retries = 0, int seconds = 0);

  /// Why the last Connect failed, in words that can stand behind "cannot
  /// connect to HOST:PORT: "; not after kServerTaken.
  std::string WhyNotConnected() const;

  /// Ends the connection, and so lets others have their turn.
  void Disconnect();

  /// Who is busy with the server, after kServerTaken: "kqft put Run7 (pid 12)".
  const std::string& TakenBy() const;

  /// The server's project directory, as the server spells it.
  /// Blocks: up to 5 s.
  int GetDirectory(std::string& directory);

  /// Blocks: up to 30 s.
  int ListProjects(std::vector<SProject>& projects);

  /// The files of a project that the server lists; none when there is no such
  /// project. Blocks: up to 35 s.
  int ListFiles(const std::string& project, std::vector<SProjectFile>& files);

  /// All of them, deep ones included, with what is known of each: from the
  /// inventory of the project, or by asking the server for one directory after
  /// the other. Blocks: until that is done.
  int ListAllFiles(const std::string& project, SFileList& list);

  /// Deletes a project and looks what is left of it.
  /// @param left how many files the server still lists
  /// @return 0 for a name that no project can have: it is not sent; also
  ///         kDeleteRefused
  /// Blocks: up to 2 minutes.
  int DeleteProject(const std::string& project, std::size_t& left);

  /// Begins to look for the files of the Put that follows, on a thread of its own, so
  /// that they are known once the connection stands. What it finds counts for a
  /// second; what a filter or names choose is looked for by Put alone.
  void LookAhead(const SPutRequest& request);

  /// Sends, and leaves the server free. What was interrupted goes on with the
  /// next call. Ends the connection.
  /// Blocks: until all is done or given up, or Cancel.
  STransferResult Put(const SPutRequest& request);

  /// Sends what comes into a directory, until Cancel. A file goes once it has
  /// been seen unchanged for a while, and nobody has it open for writing where
  /// the system can tell; each round is a Put of those, told by OnRound. A file
  /// that changes meanwhile goes later, one that is removed here stays there.
  ///
  /// The directory is looked at twice in that while, or every 5 s; changes need
  /// not be announced by the file system. Without any nothing is asked of the
  /// server, and no connection stands between two rounds. A round that fails
  /// is tried again for ever, with pauses that grow from 1 to 30 s.
  /// Blocks: until Cancel; what runs then ends with care.
  /// @return "" or why it makes no sense
  std::string Watch(const SWatchRequest& request);

  /// Fetches. Files take their names when they are whole.
  /// Blocks: as Put.
  STransferResult Get(const SGetRequest& request);

  /// Compares the server's bytes with the inventory of the project, and with a
  /// directory of this machine, where one is named. All of them are read, and
  /// nothing is changed on either side.
  /// Blocks: as Put.
  SVerifyResult Verify(const SVerifyRequest& request);

  /// Ends the Put, Watch, Get or Verify that runs, with care: what has arrived is kept;
  /// also a Connect. Nothing when none runs. Does not wait. Any thread, also an observer's.
  void Cancel();

  /// Why a request makes no sense, in words; "" when it may be tried. Asks
  /// only this machine.
  static std::string WhyNoPut(const SPutRequest& request);
  static std::string WhyNoWatch(const SWatchRequest& request);
  static std::string WhyNoGet(const SGetRequest& request);
  static std::string WhyNoVerify(const SVerifyRequest& request);
  static std::string WhyNoProject(const std::string& project);

  /// What is wrong with a SServerPlace::m_strBandwidth; "" when nothing is.
  static std::string WhyNoBandwidth(const std::string& bandwidth);

  struct SState;  ///< the library's own

 private:
  std::unique_ptr<SState> m_pState;
};
