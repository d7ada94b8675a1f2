// Lost-info text: side files of any content give a bounded text or a failure,
// the same each time, and a reported range is stored.
//
// Input: index, position and length of the report, 4 bytes each for the size
// of the ranges' file, then both files.

#include "Fuzz.h"
#include "platform/ByteOrder.h"
#include "platform/FileConfig.h"
#include "protocol/MessageCodes.h"
#include "support/FakeTransNet.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CFuzzInput input(data, size);
  std::string report = input.Take(20);
  const std::size_t listBytes = input.TakeByte() << 8 | input.TakeByte();
  CJail jail;
  WriteWholeFile(jail.Root() + "run.li", input.Take(listBytes));
  WriteWholeFile(jail.Root() + "run.fi", input.Rest());

  CFakeTransNet net;
  CTransClient session(&net, kClientIp, kClientPort);
  const auto ask = [&](int code, const std::string& body) {
    session.DealNetMsg(0, 0, code, static_cast<int>(body.size()), body.data(), 0);
    return net.LastBody(code);
  };
  const std::string text = ask(NET_CTS_GETLOSTINFO, jail.Root() + "run.tm");
  Require(text.size() < (17U << 20));
  Require(ask(NET_CTS_GETLOSTINFO, jail.Root() + "run.tm") == text);
  const std::int32_t result = ReadInt32(text.data());
  Require(result == 1 ? text.find('|') < text.rfind('|') : text.size() == 4 && result < 0);

  if (report.size() < 20) return 0;
  if (ReadInt32(ask(NET_CTS_CHANGELOSTINFO, report).data()) != 1) return 0;
  QFileConfig list;
  list.SetFileName(jail.Root() + "run.li");
  std::string range;
  Require(list.ReadConfig());
  const std::string key = "lost_info_" + std::to_string(ReadInt32(report.data()));
  Require(list.ReadString("Lost_Pos", key, range, true) == 1);
  Require(range == std::to_string(ReadInt64(report.data() + 4)) + "," +
                       std::to_string(ReadInt64(report.data() + 12)));
  Require(ReadInt32(ask(NET_CTS_GETLOSTINFO, jail.Root() + "run.tm").data()) != 0);
  return 0;
}
