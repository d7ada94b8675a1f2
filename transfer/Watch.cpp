// Watch: rounds of puts of what has settled below a directory.

#include <algorithm>
#include <filesystem>
#include <limits>

#include "platform/PathBytes.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClientState.h"
#include "transfer/SettledFiles.h"

namespace {

constexpr std::int64_t kLongestPauseMs = 5000;
constexpr std::int64_t kLookingShare = 20;  // of the time, one part in so many

// Nothing that another try could change: the file itself has to.
bool IsOfTheFile(const STransferItem& item) {
  return item.m_bFinal && (item.m_nCode == 0 || item.m_nCode == ERROR_CODE_CLIENT_OPENFILE);
}

bool IsPutOff(const STransferItem& item) {
  return !item.m_bDone && item.m_bLater;
}

// True when there is no more to do about the files of the round.
bool TakeOver(const STransferResult& round, CSettledFiles& files) {
  bool good = round.m_nCode == RESULT_OK && round.m_strInventory.empty();
  for (const STransferItem& item : round.m_vecItems) {
    if (IsPutOff(item)) continue;
    const bool handled = item.m_bDone || IsOfTheFile(item);
    if (handled) files.Handled(item.m_strLocal);
    good = good && handled;
  }
  return good;
}

}  // namespace

std::string CProjectClient::Watch(const SWatchRequest& request) {
  const CCancelToken::CScope running(m_pState->m_cancel);
  if (std::string why = WhyNoWatch(request); !why.empty()) return why;
  const std::int64_t settleMs = std::int64_t{1000} * request.m_nSettleSeconds;
  CSettledFiles files(request.m_put.m_vecPaths.front(), request.m_put.m_filter, settleMs);
  SPutRequest put = request.m_put;
  put.m_filter = CFilter();  // they have gone through it
  put.m_bOnlyFiles = true;
  put.m_nRetries = 0;
  put.m_nRetrySeconds = 0;
  put.m_whyLater = [&files](const std::string& path) { return files.WhyLater(path); };
  CRetry retry(std::numeric_limits<int>::max(), 0);
  bool good = true;
  while (!m_pState->m_cancel.IsCancelled()) {
    const std::int64_t start = System().SteadyMilliseconds();
    for (const SLeftOut& left : files.Look()) m_pState->m_observer.OnLeftOut(left);
    const std::int64_t looked = System().SteadyMilliseconds() - start;
    std::int64_t pause = std::max(std::min(settleMs / 2, kLongestPauseMs), kLookingShare * looked);
    put.m_vecFiles = files.Due();
    if (!put.m_vecFiles.empty()) {
      const STransferResult round = Put(put);
      Disconnect();
      const bool before = good;
      good = TakeOver(round, files);
      if (!good) pause = retry.Next(before);
      m_pState->m_observer.OnRound(round);
    }
    m_pState->m_cancel.Sleep(static_cast<int>(pause));
  }
  return "";
}

std::string CProjectClient::WhyNoWatch(const SWatchRequest& request) {
  const std::vector<std::string>& paths = request.m_put.m_vecPaths;
  std::error_code error;
  if (paths.size() != 1 || !std::filesystem::is_directory(PathOf(paths.front()), error)) {
    return "one directory can be watched";
  }
  if (request.m_put.m_bPlanOnly || !request.m_put.m_bInventory) {
    return "to watch needs an inventory, and sends";
  }
  if (request.m_nSettleSeconds < 1) return "a file has to be left alone for a second at least";
  return WhyNoPut(request.m_put);
}
