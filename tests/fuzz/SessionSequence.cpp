// Session dispatcher: any sequence of messages is answered, one answer for
// each question, and changes nothing outside of the paths that it names.
//
// Input: messages, each a byte for the code and a text for the body, in which
// "~" stands for the directory that all files lie in.

#include <map>

#include "Fuzz.h"
#include "protocol/MessageCodes.h"
#include "support/FakeTransNet.h"

namespace {

// The body as it must be so that files of this process only are meant, and
// small: where the path begins, and positions of less than 512 KiB.
std::string Confined(int code, std::string body, const std::string& root) {
  if (code == NET_CTS_TRANSFILEDATA && body.size() >= 8) {
    const auto low = static_cast<unsigned char>(body[0]) | static_cast<unsigned char>(body[1]) << 8;
    body.replace(0, 8, Int64((body[2] < 0 ? -8LL : 8LL) * low));
  }
  for (std::size_t at = 0; (at = body.find('~', at)) != std::string::npos; at += root.size()) {
    body.replace(at, 1, root);
  }
  const std::map<int, std::size_t> paths = {
      {NET_CTS_PREPARETRAN_FILE, 1}, {NET_CTS_PREPARETRANS_FILE, 8}, {NET_CTS_GETLOSTINFO, 0}};
  const auto path = paths.find(code);
  if (path != paths.end() && body.size() >= path->second) body.insert(path->second, root);
  return body;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CJail jail;
  CFakeTransNet net;
  net.m_strFileDir = jail.Root() + "prj/";
  WriteWholeFile(net.m_strFileDir + "A/A.kqsln", "project");
  WriteWholeFile(jail.Root() + "A.li", "[Lost_Pos]\nnRecordCount=1\nlost_info_0=1,2\n");
  std::map<int, std::size_t> asked;
  {
    CTransClient session(&net, kClientIp, kClientPort);
    session.SetLog(jail.Root());
    for (CFuzzInput input(data, size); !input.AtEnd();) {
      const int code = AnyCode(input.TakeByte());
      const std::string body = Confined(code, input.TakeText(), jail.Root());
      const std::vector<char> exact(body.begin(), body.end());
      session.DealNetMsg(0, 0, code, static_cast<int>(exact.size()), exact.data(), 0);
      ++asked[code];
    }
  }
  for (const SMessage& message : kMessages) {
    const int code = message.m_nCode;
    Require(!message.m_bAnswered || net.Count(code) == asked[code]);
  }
  Require(net.Count(NET_STC_TRANSFILEDATA_END) <= asked[NET_CTS_PREPARETRANS_FILE]);
  Require(net.Count(NET_STC_WRITEDATA_ERROR) <= asked[NET_CTS_TRANSFILEDATA]);
  return 0;
}
