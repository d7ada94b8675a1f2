// Results of the C face: the library's, kept as they are and read one entry at
// a time. What is filled points into them.

#include "bindings/c/Result.h"

#include <memory>
#include <utility>

#include "protocol/ResultCodes.h"

namespace {

std::int64_t CountOf(const SFileList& list) {
  return static_cast<std::int64_t>(list.m_vecFiles.size());
}
std::int64_t CountOf(const STransferResult& result) {
  return static_cast<std::int64_t>(result.m_vecItems.size());
}
std::int64_t CountOf(const SVerifyResult& result) {
  return static_cast<std::int64_t>(result.m_vecFiles.size());
}
template <typename Entry>
std::int64_t CountOf(const std::vector<Entry>& entries) {
  return static_cast<std::int64_t>(entries.size());
}

/// Hands the content of a result to `give`, when it is of that kind and has
/// that entry.
template <typename Content, typename Function>
std::int32_t Read(const kqft_result* result, std::int64_t index, const Function& give) {
  if (result == nullptr) return KQFT_E_NULL;
  const Content* const content = std::get_if<Content>(&result->m_content);
  if (content == nullptr) return KQFT_E_KIND;
  if (index < 0 || index >= CountOf(*content)) return KQFT_E_ARGUMENT;
  return give(*content, static_cast<std::size_t>(index));
}

std::int64_t Signed(std::size_t count) {
  return static_cast<std::int64_t>(count);
}

}  // namespace

std::int32_t CodeOf(const STransferResult& result, bool planOnly) {
  if (result.IsDone()) return KQFT_OK;
  if (result.m_bCancelled) return KQFT_E_CANCELLED;
  if (result.m_nCode != RESULT_OK) return result.m_nCode;
  return planOnly ? KQFT_OK : KQFT_E_INCOMPLETE;
}

std::int32_t CodeOf(const SVerifyResult& result) {
  if (result.IsSame()) return KQFT_OK;
  if (result.m_bCancelled) return KQFT_E_CANCELLED;
  if (result.m_nCode != RESULT_OK) return result.m_nCode;
  const auto count = [&result](EVerdict verdict) {
    return result.m_counts[static_cast<std::size_t>(verdict)];
  };
  const bool differs =
      count(EVerdict::kChanged) + count(EVerdict::kMissing) + count(EVerdict::kExtra) > 0;
  return differs ? KQFT_E_DIFFERENT : KQFT_E_INCOMPLETE;
}

std::string WordsOf(const STransferResult& result) {
  if (!result.m_strWhy.empty()) return result.m_strWhy;
  for (const STransferItem& item : result.m_vecItems) {
    if (!item.m_bDone && !item.m_strWhy.empty()) return item.m_strShown + ": " + item.m_strWhy;
  }
  return result.m_strInventory;
}

kqft_item ItemOf(const STransferItem& item) {
  auto made = Sized<kqft_item>();
  made.code = item.m_nCode;
  made.done = item.m_bDone ? 1 : 0;
  made.for_good = item.m_bFinal ? 1 : 0;
  made.later = item.m_bLater ? 1 : 0;
  made.reason = static_cast<std::int32_t>(item.m_eReason);
  made.local = item.m_strLocal.c_str();
  made.server = item.m_strServer.c_str();
  made.name = item.m_strShown.c_str();
  made.why = item.m_strWhy.c_str();
  made.bytes = item.m_llSize;
  made.missing = item.m_llMissing;
  return made;
}

kqft_summary SummaryOf(const STransferResult& result, std::int32_t code, const char* why) {
  auto made = Sized<kqft_summary>();
  made.code = code;
  made.cancelled = result.m_bCancelled ? 1 : 0;
  made.unlisted = static_cast<std::int32_t>(result.m_vecUnlisted.size());
  made.why = why;
  made.project = result.m_strProject.c_str();
  made.other = result.m_strOther.c_str();
  made.may_hide = result.m_strMayHide.c_str();
  made.moved = result.m_llMoved;
  made.problems = Signed(result.m_nProblems);
  made.filtered = Signed(result.m_nFiltered);
  made.only_there = Signed(result.m_nOnlyThere);
  made.files_healed = Signed(result.m_nFilesHealed);
  made.blocks_healed = Signed(result.m_nBlocksHealed);
  made.seconds = result.m_dSeconds;
  return made;
}

void HandOver(kqft_result::Content content, std::int32_t code, const std::string& why,
              kqft_result** to) {
  if (to == nullptr) return;
  auto made = std::make_unique<kqft_result>();
  made->m_content = std::move(content);
  made->m_nCode = code;
  made->m_strWhy = why;
  *to = made.release();
}

void kqft_result_destroy(kqft_result* result) {
  delete result;
}

std::int64_t kqft_result_count(const kqft_result* result) {
  if (result == nullptr) return 0;
  return std::visit([](const auto& content) { return CountOf(content); }, result->m_content);
}

std::int32_t kqft_result_project(const kqft_result* result, std::int64_t index, kqft_project* out) {
  return Read<std::vector<SProject>>(result, index, [out](const auto& projects, std::size_t i) {
    kqft_project made = {};
    made.name = projects[i].m_strName.c_str();
    made.created = projects[i].m_strCreated.c_str();
    made.bytes = projects[i].m_llSize;
    return Give(made, out);
  });
}

std::int32_t kqft_result_file(const kqft_result* result, std::int64_t index, kqft_file* out) {
  return Read<SFileList>(result, index, [out](const SFileList& list, std::size_t i) {
    const SProjectFile& file = list.m_vecFiles[i];
    kqft_file made = {};
    made.name = file.m_strName.c_str();
    made.server = file.m_strServer.c_str();
    made.digest = file.m_strDigest.c_str();
    made.bytes = file.m_llSize;
    made.time_ns = file.m_llTime;
    return Give(made, out);
  });
}

std::int32_t kqft_result_item(const kqft_result* result, std::int64_t index, kqft_item* out) {
  return Read<STransferResult>(result, index, [out](const STransferResult& moved, std::size_t i) {
    return Give(ItemOf(moved.m_vecItems[i]), out);
  });
}

std::int32_t kqft_result_verdict(const kqft_result* result, std::int64_t index, kqft_verdict* out) {
  return Read<SVerifyResult>(result, index, [out](const SVerifyResult& check, std::size_t i) {
    const SFileVerdict& file = check.m_vecFiles[i];
    kqft_verdict made = {};
    made.verdict = static_cast<std::int32_t>(file.m_eVerdict);
    made.path = file.m_strPath.c_str();
    made.why = file.m_strWhy.c_str();
    made.bytes = file.m_llSize;
    made.blocks = file.m_vecBlocks.data();
    made.block_count = Signed(file.m_vecBlocks.size());
    return Give(made, out);
  });
}

std::int32_t kqft_result_summary(const kqft_result* result, kqft_summary* out) {
  if (result == nullptr) return KQFT_E_NULL;
  const char* const why = result->m_strWhy.c_str();
  if (const auto* moved = std::get_if<STransferResult>(&result->m_content)) {
    return Give(SummaryOf(*moved, result->m_nCode, why), out);
  }
  const auto* const list = std::get_if<SFileList>(&result->m_content);
  if (list == nullptr) return KQFT_E_KIND;
  kqft_summary made = {};
  made.code = result->m_nCode;
  made.why = why;
  made.project = made.other = "";
  made.may_hide = list->m_strMayHide.c_str();
  return Give(made, out);
}

std::int32_t kqft_result_check(const kqft_result* result, kqft_check* out) {
  if (result == nullptr) return KQFT_E_NULL;
  const auto* const check = std::get_if<SVerifyResult>(&result->m_content);
  if (check == nullptr) return KQFT_E_KIND;
  const auto count = [check](EVerdict verdict) {
    return Signed(check->m_counts[static_cast<std::size_t>(verdict)]);
  };
  kqft_check made = {};
  made.code = result->m_nCode;
  made.cancelled = check->m_bCancelled ? 1 : 0;
  made.compared = check->m_bCompared ? 1 : 0;
  made.meanwhile = check->m_bMeanwhile ? 1 : 0;
  made.why = result->m_strWhy.c_str();
  made.remark = check->m_strRemark.c_str();
  made.same = count(EVerdict::kSame);
  made.changed = count(EVerdict::kChanged);
  made.missing = count(EVerdict::kMissing);
  made.extra = count(EVerdict::kExtra);
  made.unknown = count(EVerdict::kUnknown);
  made.left_out = Signed(check->m_nLeftOut);
  made.read = check->m_llRead;
  made.seconds = check->m_dSeconds;
  return Give(made, out);
}

const char* kqft_result_unlisted(const kqft_result* result, std::int64_t index) {
  const auto* const moved =
      result == nullptr ? nullptr : std::get_if<STransferResult>(&result->m_content);
  if (moved == nullptr || index < 0 || index >= CountOf(moved->m_vecUnlisted)) return nullptr;
  return moved->m_vecUnlisted[static_cast<std::size_t>(index)].c_str();
}

std::int32_t kqft_result_record(const kqft_result* result, std::int64_t index, kqft_record* out) {
  using Records = std::vector<Channel_Key_Value>;
  return Read<Records>(result, index, [out](const Records& records, std::size_t i) {
    kqft_record made = {};
    made.status = records[i].m_nStatus;
    made.local = records[i].m_strPath.c_str();
    made.name = records[i].m_strName.c_str();
    made.bytes = records[i].m_llSize;
    return Give(made, out);
  });
}

std::int32_t kqft_result_range(const kqft_result* result, std::int64_t index, kqft_range* out) {
  using Ranges = std::vector<FILEDATAPOS>;
  return Read<Ranges>(result, index, [out](const Ranges& ranges, std::size_t i) {
    kqft_range made = {};
    made.position = ranges[i].llPos;
    made.bytes = ranges[i].llLen;
    return Give(made, out);
  });
}
