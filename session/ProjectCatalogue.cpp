// Project catalogue: tells a client which projects the server keeps and which
// files they consist of, and deletes a project.
//
// A project is a directory below the project directory in which, at any
// depth, a file with the project suffix lies. The walks read the directory
// tree while the client waits; runs on the link's delivery thread.

#include "net/TransNet.h"
#include "platform/ExpertUtils.h"
#include "platform/HardWareCommon.h"
#include "platform/System.h"
#include "platform/TimeConvert.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "session/TransClient.h"

namespace {

const char kSeparator[] = "\\";

// The directory bit alone: a directory that is hidden, read-only or a link
// counts as a file, kept on purpose.
bool IsPlainDirectory(const SDirectoryEntry& entry) {
  return entry.m_nAttributes == kAttributeDirectory;
}

// What no walk looks at: the directory itself, the one above, and names that
// would be taken for a path of several levels once joined.
bool IsSkipped(const SDirectoryEntry& entry) {
  if (entry.m_strName.find('\\') != std::string::npos) return true;
  return IsPlainDirectory(entry) && (entry.m_strName == "." || entry.m_strName == "..");
}

bool EndsWith(std::string name, const std::string& suffix) {
  EU::CExpertUtils::Right(name, static_cast<int>(suffix.size()));
  return name == suffix;
}

bool IsListedAtAnyDepth(const std::string& dirName) {
  return dirName == "AnalysisMultiRun" || dirName == "Model" || dirName == "AnalysisTime";
}

// Where a project's client keeps the files of one directory: the project, the
// directory itself, and at depth 2 also the one between. Deeper down the
// levels between are dropped, kept on purpose.
std::string RelativeDirectory(const std::string& project, const std::string& path, int depth) {
  const std::string dirName = EU::CExpertUtils::PickFileName(path);
  if (depth == 0) return dirName + kSeparator;
  std::string parentName;
  if (depth == 2) {
    std::string parent = EU::CExpertUtils::PickDirectory(path);
    if (!parent.empty()) parent.pop_back();
    parentName = EU::CExpertUtils::PickFileName(parent);
  }
  if (!parentName.empty()) parentName += kSeparator;
  return project + kSeparator + parentName + dirName + kSeparator;
}

}  // namespace

void CTransClient::AnswerProjectDir() {
  SendMsg(NET_CTS_GETPRJDIR, ProjectDir());
}

void CTransClient::AnswerProjectList() {
  std::vector<Channel_Key_Value> list;
  const std::string suffix = m_pTransNet == nullptr ? "" : m_pTransNet->GetPrjSuffix();
  ListProjects(ProjectDir(), suffix, &list, 0);
  std::string xml;
  Channel_Key_Value::ConverValueToXML(list, xml);
  SendMsg(NET_CTS_GETPRJLIST, xml);
  Tell(&ITransNet::OnProjectsListed, Facts(""));
}

void CTransClient::AnswerProjectFileList(int nLength, const char* data) {
  std::vector<Channel_Key_Value> list;
  const std::string name(data, static_cast<std::size_t>(nLength));
  ListProjectFiles(ProjectDir() + name, &list, 0);
  std::string xml;
  Channel_Key_Value::ConverValueToXML(list, xml);
  SendMsg(NET_CTS_GETPRJFILELIST, xml);
  Tell(&ITransNet::OnFilesListed, Facts(name));
}

// The name is not checked and the answer says success whatever happened, kept
// on purpose; where the server refuses, it says so behind that. The system
// refuses "", NUL bytes and the root directory.
void CTransClient::AnswerDeleteProject(int nLength, const char* data) {
  STransferFacts facts = Facts(std::string_view(data, static_cast<std::size_t>(nLength)));
  if (!Allows(&ITransNet::MayDelete, facts, ERefusal::kDelete)) {
    SendMsg(NET_CTS_DELETEPRJ, EncodeBody(SDeleteAnswer{RESULT_OK, true}));
    return;
  }
  const std::string path = ProjectDir() + facts.m_strPath;
  CHardWareCommon::KQClearDir(path);
  const ESystemError left = System().RemoveEmptyDirectory(path);
  SendMsg(NET_CTS_DELETEPRJ, EncodeBody(SResult{RESULT_OK}));
  facts.m_nResult = left == ESystemError::kNone ? RESULT_OK : 0;
  Tell(&ITransNet::OnDeleted, facts);
}

std::string CTransClient::ProjectDir() const {
  return m_pTransNet == nullptr ? "" : m_pTransNet->GetFileDir();
}

void CTransClient::ListProjects(const std::string& dir, const std::string& suffix,
                                std::vector<Channel_Key_Value>* out, int depth) {
  std::vector<SDirectoryEntry> entries;
  if (System().ListDirectory(dir, entries) != ESystemError::kNone) return;
  for (const SDirectoryEntry& entry : entries) {
    if (IsSkipped(entry)) continue;
    if (IsPlainDirectory(entry)) {
      ListProjects(dir + kSeparator + entry.m_strName, suffix, out, depth + 1);
      if (depth == 0 && m_bCurPrjFound) AppendProject(out);
      continue;
    }
    // Unsigned: sparse files may add up to more than a signed number holds.
    m_llCurPrjSize = static_cast<std::int64_t>(static_cast<std::uint64_t>(m_llCurPrjSize) +
                                               static_cast<std::uint64_t>(entry.m_llSize));
    if (!EndsWith(entry.m_strName, suffix)) continue;
    m_strCurPrjName = EU::CExpertUtils::PickFileName(dir);
    m_llCurPrjTime = entry.m_llCreateTime;
    m_bCurPrjFound = true;
  }
}

// Name and time stay; the next project file replaces them.
void CTransClient::AppendProject(std::vector<Channel_Key_Value>* out) {
  Channel_Key_Value record;
  record.m_strPath = m_strCurPrjName;
  record.m_strName = CTimeConvert::ConvertTimeToString(m_llCurPrjTime);
  record.m_llSize = m_llCurPrjSize;
  out->push_back(std::move(record));
  m_llCurPrjSize = 0;
  m_bCurPrjFound = false;
}

void CTransClient::ListProjectFiles(const std::string& path, std::vector<Channel_Key_Value>* out,
                                    int depth) {
  if (depth == 0) m_strCurPrjName = EU::CExpertUtils::PickFileName(path);
  std::vector<SDirectoryEntry> entries;
  if (System().ListDirectory(path, entries) != ESystemError::kNone) return;
  const bool listed = depth <= 1 || IsListedAtAnyDepth(EU::CExpertUtils::PickFileName(path));
  const std::string prefix = path + kSeparator;
  const std::string relative = RelativeDirectory(m_strCurPrjName, path, depth);
  for (const SDirectoryEntry& entry : entries) {
    if (IsSkipped(entry)) continue;
    if (IsPlainDirectory(entry)) {
      ListProjectFiles(prefix + entry.m_strName, out, depth + 1);
    } else if (listed) {
      Channel_Key_Value record;
      record.m_strPath = relative + entry.m_strName;
      record.m_strName = prefix + entry.m_strName;
      out->push_back(std::move(record));
    }
  }
}
