// Digests of what passes, and facts of files.

#include "transfer/Digest.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/TestSystem.h"
#include "transfer/FileFacts.h"

namespace {

// What passes and what lies on the disk, which tells how much is read of it.
struct SPassing {
  const std::string m_strFile = PatternBytes(static_cast<std::size_t>(kBlocksAboveBytes) + 70001);
  std::int64_t m_llRead = 0;
  CFileDigest m_digest;

  void Pass(std::size_t from, std::size_t to) {
    m_digest.Add(static_cast<std::int64_t>(from), m_strFile.data() + from, to - from);
  }
  DigestReader Disk() {
    return [this](std::int64_t position, char* data, std::size_t size) {
      const std::size_t got = m_strFile.copy(data, size, static_cast<std::size_t>(position));
      m_llRead += static_cast<std::int64_t>(got);
      return static_cast<std::int64_t>(got);
    };
  }
  SFileDigest End() {
    SFileDigest digest;
    EXPECT_TRUE(m_digest.Finish(static_cast<std::int64_t>(m_strFile.size()), Disk(), digest));
    return digest;
  }
};

TEST(FileDigest, IsTheSameInAnyOrderAndReadsOnlyWhatDidNotPassInItsTurn) {
  SPassing file;
  const std::size_t size = file.m_strFile.size(),
                    block = static_cast<std::size_t>(kDigestBlockBytes);
  for (std::size_t at = 0; at < size; at += 65500) file.Pass(at, std::min(at + 65500, size));
  const SFileDigest inOrder = file.End();
  EXPECT_EQ(file.m_llRead, 0);
  EXPECT_EQ(inOrder.m_whole, DigestOf(file.m_strFile));
  ASSERT_EQ(inOrder.m_vecBlocks.size(), 17U);
  EXPECT_EQ(inOrder.m_vecBlocks[16], DigestOf(file.m_strFile.substr(16 * block)));
  EXPECT_EQ(inOrder.m_vecBlocks[1], DigestOf(file.m_strFile.substr(block, block)));

  // Resumed behind the first three blocks and a bit, half of it sent twice.
  EXPECT_TRUE(file.m_digest.ReadTo(static_cast<std::int64_t>(3 * block + 5), file.Disk()));
  file.Pass(3 * block + 5, 9 * block);
  file.Pass(6 * block, size);
  EXPECT_EQ(file.End(), inOrder);
  EXPECT_EQ(file.m_llRead, static_cast<std::int64_t>(3 * block + 5));

  for (std::size_t i = 17; i-- > 0;) file.Pass(i * block, std::min((i + 1) * block, size));
  EXPECT_EQ(file.End(), inOrder);

  SFileDigest digest;
  EXPECT_FALSE(file.m_digest.Finish(static_cast<std::int64_t>(size) + 1, file.Disk(), digest));
  file.Pass(0, 2);
  EXPECT_FALSE(file.m_digest.Finish(1, file.Disk(), digest));
  EXPECT_TRUE(CFileDigest().Finish(0, ReadsFile(""), digest));
  EXPECT_EQ(DigestText(digest.m_whole), "99aa06d3014798d86001c324468d497f");
}

TEST(FileFacts, TimesAndModesComeBackAndFarOnesDoNoHarm) {
  const CTempDirectory directory;
  WriteWholeFile(directory / "f", "four");
  SFileFacts facts;
  for (const SFileFacts& set :
       {SFileFacts{4, 1772978711000000100, 0644}, SFileFacts{4, -1999999900, 0444}}) {
    EXPECT_EQ(SetFileFacts(directory / "f", set), "");
    EXPECT_EQ(ReadFileFacts(directory / "f", facts), "");
    EXPECT_EQ(facts, set) << set.m_llTime << " " << facts.m_llTime << " " << facts.m_nMode;
  }
  for (const std::int64_t far : {INT64_MIN, INT64_MIN + 1, INT64_MAX}) {
    SetFileFacts(directory / "f", {4, far, 0600});
    EXPECT_EQ(ReadFileFacts(directory / "f", facts), "");
  }
  EXPECT_NE(ReadFileFacts(directory.Path(), facts), "");
  EXPECT_NE(SetFileFacts(directory / "none", facts), "");
}

}  // namespace
