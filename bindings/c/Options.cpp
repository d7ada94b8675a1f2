// Options: the structs of callers become requests. A value that makes no sense
// is refused, not bent.

#include "bindings/c/Options.h"

#include <vector>

namespace {

constexpr int kUsualPort = 9999;
constexpr int kUsualRetries = 3;
constexpr int kUsualSettleSeconds = 10;

std::int32_t TakeFilter(const kqft_options& options, CFilter& filter, std::string& words) {
  std::vector<std::string> rules;
  const std::int32_t result = TakeTexts(options.rules, options.rule_count, rules);
  if (result != KQFT_OK) return result;
  for (const std::string& rule : rules) {
    const std::string why = filter.Add(rule, false);
    if (why.empty()) continue;
    words = rule;
    words.append(": ").append(why);
    return KQFT_E_ARGUMENT;
  }
  return KQFT_OK;
}

// What put, get and verify have in common.
template <typename Request>
std::int32_t TakeCommon(const kqft_options* options, kqft_options& taken, Request& request,
                        std::string& words) {
  const std::int32_t result = Take(options, taken);
  if (result != KQFT_OK) return result;
  if (taken.retries < -1 || taken.retry_seconds < 0) return KQFT_E_ARGUMENT;
  request.m_nRetries = taken.retries == 0 ? kUsualRetries : taken.retries;
  if (taken.retries < 0) request.m_nRetries = 0;
  request.m_nRetrySeconds = taken.retry_seconds;
  return TakeFilter(taken, request.m_filter, words);
}

template <typename Request>
std::int32_t TakeMoving(const kqft_options& taken, Request& request) {
  request.m_bPlanOnly = taken.plan_only != 0;
  request.m_bInventory = taken.no_inventory == 0;
  request.m_bChecksum = taken.checksum != 0;
  request.m_bOnlyFiles = taken.files != nullptr;
  return TakeTexts(taken.files, taken.file_count, request.m_vecFiles);
}

}  // namespace

std::int32_t PlaceOf(const kqft_client_options* options, SServerPlace& place) {
  if (options == nullptr) return KQFT_E_NULL;
  kqft_client_options taken;
  const std::int32_t result = Take(options, taken);
  if (result != KQFT_OK) return result;
  if (taken.host == nullptr) return KQFT_E_NULL;
  place.m_strHost = taken.host;
  place.m_nPort = taken.port == 0 ? kUsualPort : taken.port;
  place.m_strBindAddress = TextOf(taken.bind_address);
  place.m_strLogDirectory = TextOf(taken.log_directory);
  place.m_bLogs = !place.m_strLogDirectory.empty();
  place.m_strBandwidth = TextOf(taken.bandwidth);
  if (taken.purpose != nullptr) place.m_strPurpose = taken.purpose;
  place.m_eTurn = static_cast<ETurn>(taken.turn);
  place.m_nTimeoutSeconds = taken.timeout_seconds;
  const bool makesSense = !place.m_strHost.empty() && place.m_nPort > 0 &&
                          place.m_nPort <= kLastPort && taken.turn >= KQFT_TURN_WAIT &&
                          taken.turn <= KQFT_TURN_NONE && taken.timeout_seconds >= 0 &&
                          (place.m_strBandwidth.empty() ||
                           CProjectClient::WhyNoBandwidth(place.m_strBandwidth).empty());
  return makesSense ? KQFT_OK : KQFT_E_ARGUMENT;
}

std::int32_t PutOf(const char* path, const kqft_options* options, SPutRequest& request,
                   std::string& words) {
  if (path == nullptr) return KQFT_E_NULL;
  kqft_options taken;
  std::int32_t result = TakeCommon(options, taken, request, words);
  if (result == KQFT_OK) result = TakeMoving(taken, request);
  request.m_vecPaths = {path};
  if (result == KQFT_OK) {
    result = TakeTexts(taken.more_paths, taken.more_path_count, request.m_vecPaths);
  }
  request.m_strProject = TextOf(taken.project);
  request.m_bWhole = taken.whole != 0;
  request.m_bTakeOver = taken.take_over != 0;
  return result;
}

std::int32_t GetOf(const char* project, const char* into, const kqft_options* options,
                   SGetRequest& request, std::string& words) {
  if (project == nullptr || into == nullptr) return KQFT_E_NULL;
  kqft_options taken;
  std::int32_t result = TakeCommon(options, taken, request, words);
  if (result == KQFT_OK) result = TakeMoving(taken, request);
  request.m_strProject = project;
  request.m_strInto = into;
  request.m_bOverwrite = taken.overwrite != 0;
  return result;
}

std::int32_t VerifyOf(const char* project, const char* local, const kqft_options* options,
                      SVerifyRequest& request, std::string& words) {
  if (project == nullptr) return KQFT_E_NULL;
  kqft_options taken;
  const std::int32_t result = TakeCommon(options, taken, request, words);
  request.m_strProject = project;
  request.m_strLocal = TextOf(local);
  return result;
}

std::int32_t WatchOf(const char* directory, const kqft_options* options, SWatchRequest& request,
                     std::string& words) {
  const std::int32_t result = PutOf(directory, options, request.m_put, words);
  if (result != KQFT_OK) return result;
  kqft_options taken;
  Take(options, taken);
  request.m_nSettleSeconds = taken.settle_seconds == 0 ? kUsualSettleSeconds : taken.settle_seconds;
  return KQFT_OK;
}
