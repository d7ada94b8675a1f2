#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "client/KQFileBulkTransfer.h"
#include "net/LinkFailure.h"
#include "transfer/Bandwidth.h"
#include "transfer/Digest.h"
#include "transfer/ProjectClient.h"
#include "transfer/Servers.h"

struct SLostRanges;

/// What the server knows to be missing of a measurement file.
struct SLostInfo {
  std::string m_strText;  ///< the answer itself
  std::vector<FILEDATAPOS> m_vecLost;
  std::vector<std::int64_t> m_vecBounds;
};

/// What an upload's worker hears when it asks the same again: the answer that
/// it is to go by, while the server's is the one that was looked at.
struct SLostAnswer {
  std::string m_strSeen;
  std::string m_strTold;
};

/// The visitor of the library, used with the care that a person expects: a
/// lost link wakes whoever waits, and a long wait is explained.
///
/// Results are the library's: 1, or a negative code; -14 also when the link
/// went while an answer was awaited; -100 when the server does not know a
/// question. It handles those of one link in order: one that it passed over
/// and never answered on this link gets no answer later, and is not asked again.
///
/// Threads: one thread uses it; the network layer calls the overrides.
class CSession : public CKQFileBulkTransfer {
 public:
  /// @param place    m_strLogDirectory ends with a separator
  /// @param observer told of long waits; outlives the session
  CSession(const SServerPlace& place, ITransferObserver& observer);
  ~CSession() override;

  /// Of several servers, those for a project, unless a connection stands.
  void ChooseServer(const std::string& project);

  /// Connects and waits until the server answers; of several to the next one
  /// that does, beginning with the one that was used last.
  /// @return also kOtherStorage
  /// Blocks: for each server 10 s for a connection, then as long as the server finishes what
  ///         earlier links of this address have left, up to 30 s; or the times
  ///         that the place says.
  int Open();

  /// A result in words; those of a connection that could not be had, or was
  /// given up, say why that was.
  std::string Describe(int result) const;

  /// Of the last Open, when it failed: trying again soon is of no use.
  bool IsHopeless() const { return m_bHopeless; }

  /// The servers are not those of one storage: nothing may go on.
  bool IsOtherStorage() const { return m_bOtherStorage; }

  /// Another server was taken than at the beginning. What its storage refuses may
  /// be held by the former one, until that is known to be dead.
  bool HasMovedOn() const { return m_bMovedOn; }

  /// Moves with every sign that the connection lives: something came, left, or
  /// was read to be sent.
  std::int64_t Heard() const;

  /// So long may the server be silent; `usual` where the place says nothing.
  int TimeoutMs(int usual) const;

  /// What is told when it was silent for longer.
  std::string SilenceText() const;

  /// Ends the transfer and the connection, if any, and opens a new one: after
  /// a request that timed out, late answers would satisfy the next ones.
  int Reopen();

  /// Puts a question of the visitor's that none of the following puts, by its
  /// code. @return its result; -14 when the link went; that it is unknown, of a
  /// server that passes it over.
  int Request(int code, const std::function<int()>& request);

  // Questions.
  int AskDirectory(std::string& directory);
  int AskProjects(std::vector<Channel_Key_Value>& projects);
  int AskFiles(const std::string& project, std::vector<Channel_Key_Value>& files);
  int Delete(const std::string& project);

  /// Size of each file, 0 for one that is not there, as the server tells it:
  /// any number. A name with "|" cannot be asked for so.
  int AskSizes(const std::vector<std::string>& names, std::vector<std::int64_t>& sizes);

  /// As AskSizes, for less where the sizes are as expected: the server is asked
  /// for the sums of some files each, and only for single files where a sum is
  /// another one. So those of 0 are certain, and those that cannot be longer than expected;
  /// others may make up for each other.
  int AskExpectedSizes(const std::vector<std::string>& names,
                       const std::vector<std::int64_t>& expected, std::vector<std::int64_t>& sizes);

  /// The sizes that are going to be asked for next: the questions leave with the
  /// next reading of a file, behind it, and AskSizes of `names`, then
  /// AskExpectedSizes of `expected`, find the answers. Left alone where they are
  /// too many. What is written to the server meanwhile makes them void.
  void AskAhead(const std::vector<std::string>& names, const std::vector<std::string>& expected);

  /// As AskProjects, in two steps: what is sent between goes on at once.
  /// @return of the second one also -2 where the server passes the question over
  void AskProjectsLater();
  int AwaitProjects(std::vector<Channel_Key_Value>& projects);

  /// Size of a file whose name AskSizes cannot carry. Makes it when missing.
  int AskHeldSize(const std::string& name, std::int64_t& size);

  int AskLostInfo(const std::string& name, SLostInfo& info);

  /// Ends the file that the server has open; one whose transfer failed stays
  /// open there and keeps it from telling what is missing of the next one.
  int EndFile();

  /// Empties a file of the server.
  int EmptyFile(const std::string& name);

  /// Tells the server that a range which it misses is there now; of the file
  /// that was asked about last.
  int ReportFilled(int index, const FILEDATAPOS& range);

  // Files of the server without one here.

  /// Given what arrives, in the file's order, on the network's thread. Must not
  /// call the session. False ends it.
  using DataSink = std::function<bool(const char* data, std::size_t size)>;

  /// Reads a file from `position` on, at most `most` bytes of it. What it takes
  /// is not counted as moved.
  /// @return 1, also when the file ends before; -7 also when there is none; -26
  ///         when it was ended or arrived otherwise than it should: the
  ///         connection is then cut
  int ReadFile(const std::string& name, DataSink sink, std::int64_t position = 0,
               std::int64_t most = INT64_MAX);

  /// Writes pieces into a file, which keeps the rest of what it holds and is
  /// made when missing. Not counted as moved either.
  using Parts = std::map<std::int64_t, std::string>;  ///< by position; each at most 64 KiB
  int WriteParts(const std::string& name, const Parts& parts);

  /// The same, and reads all of the file behind that without a wait between.
  /// @param most bytes that are kept of it
  /// @return that of the writing, or else that of the reading
  int WritePartsAndRead(const std::string& name, const Parts& parts, std::string& text,
                        std::size_t most);

  /// Writes without waiting for the answers; what becomes of it stays unknown.
  void WriteLater(const std::string& name, bool whole, const Parts& parts);

  /// As Leave, but Stop comes once what else was sent has been waited for.
  /// @param name "" when the server need not be left like that
  void LeaveLater(const std::string& name);

  /// Waits for what was sent without waiting.
  void AwaitAllStored();

  /// Puts a text in the place of a file. Not counted either.
  int WriteText(const std::string& name, const std::string& text);

  /// Sends blocks of kDigestBlockBytes to their places in a file of the
  /// server, which keeps the rest of it. Counted as moved.
  /// @param held   bytes that the server must hold of it; no block goes beyond
  /// @param reader of the file here
  /// @return 1; 0 when the server holds another number: nothing was sent
  int SendBlocks(const std::string& name, std::int64_t held,
                 const std::vector<std::int64_t>& blocks, const DigestReader& reader);

  // Transfers.

  /// From then on digests are taken of what uploads send.
  void TakeDigests(bool wanted) { m_bDigests = wanted; }

  /// Of one record of the last transfer, once that has ended.
  CFileDigest TakeDigest(std::size_t record);

  /// @param digests one for each record, of the beginning that is counted
  ///                already; left alone unless TakeDigests was wanted
  /// @param answers one for each measurement file among the records. Where
  ///                the server now names other ranges than were looked at, the
  ///                worker hears that it is busy, and the file fails.
  int StartUpload(const std::vector<Channel_Key_Value>& records, std::deque<SLostAnswer> answers,
                  std::vector<CFileDigest> digests);

  /// Opens what a record is stored in; called on the worker.
  using TargetOpener = std::function<STargetFile(std::size_t record)>;

  /// @param digests one for each record, of what is here already; or none at
  ///                all. What arrives is added.
  int StartDownload(const std::vector<Channel_Key_Value>& records, const std::string& directory,
                    std::vector<CFileDigest> digests, TargetOpener opener);

  /// True while the worker of a started transfer runs.
  bool IsMoving() const { return m_bStarted && !IsTransFinished(); }

  /// Waits a moment; the end of an upload ends the wait.
  void WaitWhileMoving();

  /// Stops what runs; what has arrived is kept. Cuts the connection where a
  /// stop could harm: one in the middle of a lost range would be reported to
  /// the server in a way that makes it forget some missing bytes.
  void StopMoving();

  /// Cuts the connection, and waits for the worker.
  void Abort();

  /// File data received, and sent: what the network has let go of, which is
  /// all of it after Stop.
  std::int64_t BytesMoved() const { return m_llMoved - m_llOwn; }

  /// Counts what ReadFile took as moved, too.
  void CountAsMoved(std::int64_t bytes) { m_llMoved += bytes; }

  /// Sum of the sizes as the server told it last.
  std::int64_t TotalTold() const { return m_TotalTransBytes; }

  /// What the server's last answer said; tells why -35 came.
  int LastAnswer() const { return m_nErrorCode; }

  bool DealNetMsg(unsigned int ip, int port, int nMsgType, int nLength, const char* pData,
                  int extra) override;
  bool ReleaseIOCPBuffer(CIOCPBuffer* p) override;

 protected:
  STargetFile OpenTarget(std::size_t record, const std::string& path) override;

 private:
  class CAnswerWait;
  int OpenOne();
  int CheckDirectory();
  void Explain(int result, int patienceMs, bool atOnce);
  std::string WordsFor(ELinkFailure why, bool atOnce) const;
  void OnFileRead(std::size_t record, std::int64_t position, const char* data, int bytes);
  int AskLostInfoOnce(const std::string& name, SLostInfo& info);

  // SessionStores.cpp
  struct SStored;
  static int UntilReady(const std::function<int()>& write);
  int Store(const std::string& name, bool whole, const Parts& parts, std::int64_t* held = nullptr);
  std::shared_ptr<SStored> Send(const std::string& name, bool whole, const Parts& parts);
  int SendParts(const std::string& name, bool whole, const Parts& parts);
  int AwaitStored(SStored& stored);
  int AwaitStoredAndSize(const std::string& name, SStored& stored, std::int64_t& held);
  bool AwaitChange(std::unique_lock<std::mutex>& lock, int ms, const std::function<bool()>& isOver);
  bool KeepStored(int code, int length, const char* body);
  int SendOwn(std::int64_t position, const std::string& text);
  int PrepareFile(const std::string& name, bool whole);
  int EndParts(int result);
  int SendPart(std::int64_t begin, std::int64_t end, const DigestReader& reader);
  int WaitForData();
  void EndData();
  bool IsReading();
  void TakeData(int length, const char* body);
  int Checked(int result) const;
  bool IsPassedOver(int code);

  // SessionSizes.cpp
  int AskSums(const std::vector<std::string>& bodies, std::vector<std::int64_t>& sums,
              const std::function<bool()>& awaitEarlier = nullptr);
  bool SendSizeQuestion(const std::string& body, bool moreFollow);
  void SendAhead();
  void ForgetAhead();
  bool WasAskedAhead(const std::vector<std::string>& bodies) const;
  bool KeepSize(int length, const char* body);
  bool StopConfirmed();
  bool TakeLostInfo(SLostRanges answer, std::string& body);
  void KeepProjects(int length, const char* body);
  void ReleaseWaiting();

  const SServerPlace m_place;
  CServers m_servers;                        // the using thread's
  std::unique_ptr<CBandwidth> m_pBandwidth;  // constant after construction; null: no limit
  ITransferObserver& m_observer;
  bool m_bStarted = false;                  // the using thread's; a worker was started
  CSharedWord<std::int64_t> m_llMoved = 0;  // word; counted on the network's threads
  CSharedWord<std::int64_t> m_llSigns = 0;  // word; signs of life, of all threads

  // The using thread's, or the notice's that it waits for.
  std::string m_strNoLink;       // why there is none; "" when there is one, or for no reason here
  bool m_bHopeless = false;      // the using thread's
  bool m_bServed = false;        // the using thread's; a link was answered on
  bool m_bMovedOn = false;       // the using thread's
  bool m_bOtherStorage = false;  // the using thread's
  std::string m_strDirectory;    // the using thread's; of the first server of several
  std::string m_strDirectoryOf;  // the using thread's; that one

  bool m_bKnowsDirectory = false;         // the using thread's; this link has told it
  std::vector<std::string> m_vecToAsk;    // the using thread's; about sizes, with the next reading
  std::deque<std::string> m_ahead;        // the using thread's; asked, nobody wanted to know yet
  std::int64_t m_llOwn = 0;               // the using thread's; sent, but no file data
  bool m_bDigests = false;                // the using thread's
  bool m_bJustRead = false;               // the using thread's; the server may be sending still
  std::vector<CFileDigest> m_vecDigests;  // the worker's while one runs, else the using thread's
  TargetOpener m_openTarget;              // as they
  std::vector<std::string> m_vecSent;     // as they; the local files of the request

  std::mutex m_mutex;
  std::condition_variable m_changed;  // an answer arrived, or the link went
  std::set<int> m_setAnswered;        // guarded by m_mutex; kinds of messages on this link
  std::set<int> m_setUnknown;         // guarded by m_mutex; kinds that were passed over
  bool m_bLostRanges = false;         // guarded by m_mutex; the server named some
  bool m_bStopping = false;           // guarded by m_mutex
  std::deque<std::shared_ptr<SStored>> m_stored;  // guarded by m_mutex; not over, the oldest first
  bool m_bListed = false;       // guarded by m_mutex; the projects, since they were asked for
  std::string m_strListed;      // guarded by m_mutex; them
  std::size_t m_nUnwanted = 0;  // guarded by m_mutex; sizes that come before those
  std::size_t m_nAsked = 0;     // guarded by m_mutex; sizes that are to come
  std::size_t m_nWanted = 0;    // guarded by m_mutex; so many wake who asked
  std::vector<std::int64_t> m_vecSizes;   // guarded by m_mutex
  std::string m_strLostText;              // guarded by m_mutex; the last answer about ranges
  std::deque<SLostAnswer> m_answers;      // guarded by m_mutex; those to come in this request
  std::vector<CFileDigest> m_vecArrived;  // guarded by m_mutex; of a download
  DataSink m_sink;                        // guarded by m_mutex, also while it is called
  std::int64_t m_llSunk = 0;              // guarded by m_mutex; position of its next byte
  bool m_bSinkBroken = false;             // guarded by m_mutex; it is given no more

  std::int64_t m_llSinkEnd = 0;  // guarded by m_mutex; where it has all that was wanted
  bool m_bSinkEnded = false;     // guarded by m_mutex; the server has sent all
};
