// Checking a project on a local disk: every file of the inventory is looked
// at, those of the right size are read by several threads, and what else lies
// there is named.
//
// The work is cut into pieces of a file or of 64 MiB, so that all threads have
// some of a single long recording.

#include "transfer/ProjectCheck.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/PathBytes.h"
#include "platform/SharedWord.h"
#include "transfer/Digest.h"
#include "transfer/LocalRecording.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kPieceBlocks = 16;

std::string ReadText(const fs::path& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return "";
  const std::uintmax_t size = fs::file_size(path, error);
  if (error || size > kMostInventoryBytes) return "";
  std::ifstream file(path, std::ios::binary);
  std::string text(static_cast<std::size_t>(size), '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(file.gcount()));
  return text;
}

class CCheck {
 public:
  CCheck(const std::string& directory, const SCheckCalls& calls)
      : m_directory(PathOf(directory)), m_calls(calls) {}

  SProjectVerdict Run(int threads) {
    m_verdict.m_strWhy = ReadInventory(BytesOf(m_directory), m_inventory);
    if (!m_verdict.m_strWhy.empty()) return m_verdict;
    m_verdict.m_head = m_inventory.m_head;
    LookAtFiles();
    ReadAll(threads);
    if (!m_bStop) NameExtras();
    CInventory now;
    m_verdict.m_bMeanwhile = !ReadInventory(BytesOf(m_directory), now).empty() ||
                             now.m_head.m_llGeneration != m_verdict.m_head.m_llGeneration;
    m_verdict.m_bStopped = m_bStop;
    return m_verdict;
  }

 private:
  struct SFile {
    SFileVerdict m_verdict;  // guarded by m_mutex once threads run
    const SInventoryEntry* m_pEntry = nullptr;
    std::string m_strPath;  // on the disk
    int m_nPieces = 0;      // not read yet; guarded by m_mutex once threads run
  };
  struct SPiece {
    SFile* m_pFile = nullptr;
    std::int64_t m_llFirst = 0;  // block
    std::int64_t m_llBlocks = 0;
    std::int64_t m_llBytes = 0;
  };

  // Decides what needs no reading, and cuts the rest into pieces.
  void LookAtFiles() {
    m_vecFiles.reserve(m_inventory.GetFiles().size());  // pieces point into it
    for (const auto& [path, entry] : m_inventory.GetFiles()) {
      SFile& file = m_vecFiles.emplace_back();
      file.m_pEntry = &entry;
      file.m_strPath = BytesOf(m_directory / PathOf(path));
      file.m_verdict.m_strPath = path;
      if (!LookAt(file)) Tell(file.m_verdict);
    }
  }

  // True when the file has to be read.
  bool LookAt(SFile& file) {
    SFileVerdict& verdict = file.m_verdict;
    std::error_code error;
    if (!fs::exists(PathOf(file.m_strPath), error) && !error) {
      verdict.m_eVerdict = EVerdict::kMissing;
      return false;
    }
    SFileFacts facts;
    verdict.m_strWhy = ReadFileFacts(file.m_strPath, facts);
    verdict.m_llSize = facts.m_llSize;
    if (verdict.m_strWhy.empty()) verdict.m_strWhy = WhyInPieces(file.m_strPath);
    if (!verdict.m_strWhy.empty()) return false;
    if (!file.m_pEntry->m_bDigest) {
      verdict.m_strWhy = "its digest is not known";
      return false;
    }
    verdict.m_eVerdict = EVerdict::kSame;
    const std::int64_t size = file.m_pEntry->m_facts.m_llSize;
    if (facts.m_llSize != size) {
      verdict.m_eVerdict = EVerdict::kChanged;
      verdict.m_strWhy =
          std::to_string(facts.m_llSize) + " bytes instead of " + std::to_string(size);
      if (DigestBlocks(size) == 0) return false;
    }
    AddPieces(file, size);
    return true;
  }

  void AddPieces(SFile& file, std::int64_t size) {
    const std::int64_t blocks = DigestBlocks(size);
    for (std::int64_t first = 0; first == 0 || first < blocks; first += kPieceBlocks) {
      SPiece& piece = m_vecPieces.emplace_back();
      piece.m_pFile = &file;
      piece.m_llFirst = first;
      piece.m_llBlocks = std::min(kPieceBlocks, blocks - first);
      piece.m_llBytes =
          std::min(size - first * kDigestBlockBytes, kPieceBlocks * kDigestBlockBytes);
      m_llTotal += piece.m_llBytes;
      ++file.m_nPieces;
    }
  }

  void ReadAll(int threads) {
    std::vector<std::thread> helpers;
    try {
      const auto most = static_cast<int>(std::min<std::size_t>(m_vecPieces.size(), 1024));
      for (int i = 1; i < std::min(threads, most); ++i) helpers.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {
      // As many as there are, then.
    }
    Work();
    for (std::thread& helper : helpers) helper.join();
  }

  void Work() {
    std::unique_lock lock(m_mutex);
    while (!m_bStop && m_nNextPiece < m_vecPieces.size()) {
      const SPiece& piece = m_vecPieces[m_nNextPiece++];
      lock.unlock();
      const SFileVerdict found = ReadPiece(piece);
      lock.lock();
      EndPiece(piece, found);
    }
  }

  SFileVerdict ReadPiece(const SPiece& piece) {
    const SInventoryEntry& entry = *piece.m_pFile->m_pEntry;
    const DigestReader reader = ReadsFile(piece.m_pFile->m_strPath);
    SFileVerdict found;
    found.m_eVerdict = EVerdict::kSame;
    if (char byte = 0; reader(0, &byte, 1) < 0) {
      found.m_eVerdict = EVerdict::kUnknown;
      found.m_strWhy = "it cannot be opened";
    } else if (piece.m_llBlocks > 0) {
      ReadBlocks(piece, reader, found);
    } else {
      SFileDigest digest;
      CFileDigest taken;
      const bool whole = taken.Finish(entry.m_facts.m_llSize, reader, digest);
      if (!whole || digest != entry.m_digest) found.m_eVerdict = EVerdict::kChanged;
      if (!whole) found.m_strWhy = "it cannot be read to its end";
    }
    return found;
  }

  void ReadBlocks(const SPiece& piece, const DigestReader& reader, SFileVerdict& found) {
    const SInventoryEntry& entry = *piece.m_pFile->m_pEntry;
    for (std::int64_t i = piece.m_llFirst; i < piece.m_llFirst + piece.m_llBlocks && !m_bStop;
         ++i) {
      const std::int64_t position = i * kDigestBlockBytes;
      const std::int64_t length = std::min(kDigestBlockBytes, entry.m_facts.m_llSize - position);
      SDigest digest;
      const bool whole = DigestPart(position, length, reader, digest);
      const SDigest& expected = entry.m_digest.m_vecBlocks[static_cast<std::size_t>(i)];
      if (!whole || digest != expected) found.m_vecBlocks.push_back(i);
    }
    if (!found.m_vecBlocks.empty()) found.m_eVerdict = EVerdict::kChanged;
  }

  // Under the lock.
  void EndPiece(const SPiece& piece, const SFileVerdict& found) {
    if (m_bStop) return;
    SFileVerdict& verdict = piece.m_pFile->m_verdict;
    if (found.m_eVerdict != EVerdict::kSame) verdict.m_eVerdict = found.m_eVerdict;
    if (!found.m_strWhy.empty()) verdict.m_strWhy = found.m_strWhy;
    verdict.m_vecBlocks.insert(verdict.m_vecBlocks.end(), found.m_vecBlocks.begin(),
                               found.m_vecBlocks.end());
    m_llDone += piece.m_llBytes;
    if (--piece.m_pFile->m_nPieces == 0) {
      std::sort(verdict.m_vecBlocks.begin(), verdict.m_vecBlocks.end());
      Tell(verdict);
    }
    if (m_calls.m_onBytes && !m_calls.m_onBytes(m_llDone, m_llTotal)) m_bStop = true;
  }

  void Tell(const SFileVerdict& verdict) {
    ++m_verdict.m_counts[static_cast<std::size_t>(verdict.m_eVerdict)];
    const bool isChanged = verdict.m_eVerdict == EVerdict::kChanged;
    if (isChanged || verdict.m_eVerdict == EVerdict::kMissing) {
      // Of another size: blocks alone would not heal it.
      const bool byBlocks = isChanged && verdict.m_strWhy.empty();
      m_verdict.m_damage.Set(verdict.m_strPath,
                             byBlocks ? verdict.m_vecBlocks : std::vector<std::int64_t>());
    }
    if (m_calls.m_onFile) m_calls.m_onFile(verdict);
  }

  // What lies there and is in no inventory. Directories behind symbolic links
  // are not gone into.
  void NameExtras() {
    std::vector<std::string> pending = {""};
    while (!pending.empty()) {
      const std::string below = pending.back();
      pending.pop_back();
      std::error_code error;
      for (fs::directory_iterator entry(m_directory / PathOf(below), error), end;
           !error && entry != end; entry.increment(error)) {
        std::error_code ignored;
        const std::string path = below + BytesOf(entry->path().filename());
        if (entry->symlink_status(ignored).type() == fs::file_type::directory) {
          pending.push_back(path + "/");
        } else if (!IsOwnFile(path) && m_inventory.Find(path) == nullptr && !IsPiece(path)) {
          SFileVerdict verdict{path, EVerdict::kExtra, 0, "", {}};
          const std::uintmax_t size = entry->file_size(ignored);
          if (!ignored) verdict.m_llSize = static_cast<std::int64_t>(size);
          Tell(verdict);
        }
      }
      if (error) Tell({below, EVerdict::kUnknown, 0, error.message(), {}});
    }
  }

  // A side file or a segment of a recording that is in the inventory.
  bool IsPiece(const std::string& path) const {
    const std::string stem = StemOfPiece(path);
    std::error_code ignored;
    if (stem.empty() || !fs::is_regular_file(m_directory / PathOf(stem + ".li"), ignored))
      return false;
    const auto next = m_inventory.GetFiles().lower_bound(stem + ".");
    return next != m_inventory.GetFiles().end() &&
           next->first.compare(0, stem.size() + 1, stem + ".") == 0;
  }

  const fs::path m_directory;
  const SCheckCalls& m_calls;
  CInventory m_inventory;           // constant while threads run
  std::vector<SFile> m_vecFiles;    // as its members say
  std::vector<SPiece> m_vecPieces;  // constant while threads run
  std::int64_t m_llTotal = 0;       // constant while threads run
  CSharedWord<bool> m_bStop = false;
  std::mutex m_mutex;
  std::size_t m_nNextPiece = 0;  // guarded by m_mutex
  std::int64_t m_llDone = 0;     // guarded by m_mutex
  SProjectVerdict m_verdict;     // guarded by m_mutex while threads run
};

}  // namespace

bool SProjectVerdict::IsSame() const {
  return m_strWhy.empty() && !m_bStopped && !m_bMeanwhile && AreAllSame(m_counts);
}

std::string ReadInventory(const std::string& directory, CInventory& inventory) {
  const fs::path place = PathOf(directory);
  SInventoryChoice choice =
      ChooseInventory(ReadText(place / kInventoryName), ReadText(place / kOtherInventoryName));
  if (!choice.m_bFound) return "it has no whole inventory";
  inventory = std::move(choice.m_inventory);
  return "";
}

SProjectVerdict CheckProject(const std::string& directory, int threads, const SCheckCalls& calls) {
  return CCheck(directory, calls).Run(threads);
}
