#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "bindings/c/Face.h"
#include "platform/ChannelKeyValue.h"
#include "platform/FileDataPos.h"
#include "transfer/ProjectClient.h"

/// What an operation gave, and its code in words.
struct kqft_result {
  using Content = std::variant<std::vector<SProject>, SFileList, STransferResult, SVerifyResult,
                               std::vector<Channel_Key_Value>, std::vector<FILEDATAPOS>>;
  Content m_content;
  std::int32_t m_nCode = KQFT_OK;
  std::string m_strWhy;
};

/// What the face says of it: 1 where nothing is left to do.
std::int32_t CodeOf(const STransferResult& result, bool planOnly);
std::int32_t CodeOf(const SVerifyResult& result);

/// Why the code is none of success, as far as the result tells; else "".
std::string WordsOf(const STransferResult& result);

kqft_item ItemOf(const STransferItem& item);
kqft_summary SummaryOf(const STransferResult& result, std::int32_t code, const char* why);

/// Hands a result over to the caller, who may not want it.
void HandOver(kqft_result::Content content, std::int32_t code, const std::string& why,
              kqft_result** to);
