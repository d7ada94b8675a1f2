#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>

#include "platform/ByteOrder.h"

/// What the messages carry: one struct for each body of more than one text,
/// its fields in the order in which they travel. A body that is a text (2509,
/// 2513, 2514; answers to 2511, 2512, 2514) is that text, an empty one nothing.
///
/// Texts and data are the rest of a body, and views: of the bytes that were
/// decoded, or of what is to be encoded.

/// Of a path that 2500 carries.
constexpr std::size_t kMaxNameBytes = 1023;

/// 2500: announces a file to receive.
struct SUploadStart {
  bool m_bCreate = false;      ///< empty or create it, instead of keeping what it holds
  std::string_view m_strPath;  ///< at the server
  static constexpr auto kFields =
      std::make_tuple(&SUploadStart::m_bCreate, &SUploadStart::m_strPath);
};

/// Answer to 2500.
struct SUploadStartAnswer {
  std::int32_t m_nResult = 0;
  std::int64_t m_llHeld = 0;  ///< bytes that the server's file had before it was opened
  static constexpr auto kFields =
      std::make_tuple(&SUploadStartAnswer::m_nResult, &SUploadStartAnswer::m_llHeld);
};

/// 2501, 2506: a piece of the file. Senders write it straight into the buffers
/// that go out (protocol/DataPacket.h).
struct SFileData {
  std::int64_t m_llPosition = 0;  ///< of the first byte
  std::string_view m_strData;
  static constexpr auto kFields = std::make_tuple(&SFileData::m_llPosition, &SFileData::m_strData);
};

/// A 2501 for this position says that its client has no write under way and is
/// about to leave. It is answered as any other that cannot be stored.
constexpr std::int64_t kLeavingPosition = -1;

/// Answer to 2504.
struct STotalSize {
  std::int64_t m_llBytes = 0;  ///< of those files that exist
  static constexpr auto kFields = std::make_tuple(&STotalSize::m_llBytes);
};

/// 2505: asks for a file.
struct SDownloadStart {
  std::int64_t m_llPosition = 0;  ///< from which on
  std::string_view m_strPath;     ///< at the server
  static constexpr auto kFields =
      std::make_tuple(&SDownloadStart::m_llPosition, &SDownloadStart::m_strPath);
};

/// 2507, 2508; answers to 2505, 2510.
struct SResult {
  std::int32_t m_nResult = 0;
  static constexpr auto kFields = std::make_tuple(&SResult::m_nResult);
};

/// Answer to 2509.
struct SLostRanges {
  std::int32_t m_nResult = 0;
  std::string_view m_strText;  ///< "" when nothing is known to be missing
  static constexpr auto kFields = std::make_tuple(&SLostRanges::m_nResult, &SLostRanges::m_strText);
};

/// Answer to 2513. The result is always 1; what stands behind it is sent only
/// where the server refused, and those who do not know of it do not see it.
struct SDeleteAnswer {
  std::int32_t m_nResult = 0;
  bool m_bRefused = false;
  static constexpr auto kFields =
      std::make_tuple(&SDeleteAnswer::m_nResult, &SDeleteAnswer::m_bRefused);
};

/// 2510: what is left of a missing range.
struct SChangedRange {
  std::int32_t m_nIndex = 0;  ///< in the answer to the last 2509, from 0
  std::int64_t m_llPosition = 0;
  std::int64_t m_llBytes = 0;
  static constexpr auto kFields = std::make_tuple(
      &SChangedRange::m_nIndex, &SChangedRange::m_llPosition, &SChangedRange::m_llBytes);
};

/// 2504 is a text as well: names, each with a bar behind it. A name that holds
/// one cannot be asked for.
constexpr char kNameEnd = '|';

inline void AddName(std::string& question, std::string_view name) {
  question += name;
  question += kNameEnd;
}

/// Takes the first name away. A last one may lack its bar.
inline std::string_view TakeName(std::string_view& question) {
  const std::string_view name = question.substr(0, question.find(kNameEnd));
  question.remove_prefix(name.size() < question.size() ? name.size() + 1 : name.size());
  return name;
}

/// How each kind of field travels. Take* removes it from the front; false when
/// the rest is too short.

inline void AddField(std::string& body, bool field) {
  body += field ? '\1' : '\0';
}
inline void AddField(std::string& body, std::int32_t field) {
  char bytes[sizeof field];
  WriteInt32(bytes, field);
  body.append(bytes, sizeof bytes);
}
inline void AddField(std::string& body, std::int64_t field) {
  char bytes[sizeof field];
  WriteInt64(bytes, field);
  body.append(bytes, sizeof bytes);
}
inline void AddField(std::string& body, std::string_view field) {
  body += field;
}

inline bool TakeField(std::string_view& rest, bool& field) {
  if (rest.empty()) return false;
  field = rest[0] != '\0';
  rest.remove_prefix(1);
  return true;
}
inline bool TakeField(std::string_view& rest, std::int32_t& field) {
  if (rest.size() < sizeof field) return false;
  field = ReadInt32(rest.data());
  rest.remove_prefix(sizeof field);
  return true;
}
inline bool TakeField(std::string_view& rest, std::int64_t& field) {
  if (rest.size() < sizeof field) return false;
  field = ReadInt64(rest.data());
  rest.remove_prefix(sizeof field);
  return true;
}
inline bool TakeField(std::string_view& rest, std::string_view& field) {
  field = rest;
  rest = {};
  return true;
}

/// The body as it travels.
template <typename Body>
std::string EncodeBody(const Body& body) {
  std::string bytes;
  std::apply([&](auto... fields) { (AddField(bytes, body.*fields), ...); }, Body::kFields);
  return bytes;
}

/// Empty when the bytes are fewer than the fields need; further ones are
/// ignored. The views in the result are good as long as `bytes` are.
template <typename Body>
std::optional<Body> DecodeBody(std::string_view bytes) {
  Body body;
  const bool whole = std::apply(
      [&](auto... fields) { return (TakeField(bytes, body.*fields) && ...); }, Body::kFields);
  return whole ? std::optional<Body>(body) : std::nullopt;
}

/// The same of a body as DealNetMsg gets it.
template <typename Body>
std::optional<Body> DecodeBody(const char* bytes, int length) {
  return DecodeBody<Body>(length > 0 ? std::string_view(bytes, static_cast<std::size_t>(length))
                                     : std::string_view());
}
