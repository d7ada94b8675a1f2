#include <filesystem>
#include <string>

#include "client/KQFileTransServiceVisitor.h"
#include "protocol/ResultCodes.h"

// app HOST PORT FILE: sends the file as Demo\run1.tm.
int main(int, char** argv) {
  CKQFileTransServiceVisitor client;
  std::string request, dir;
  if (!client.Init("/tmp/")) return 3;
  if (client.ConnectAndWait(argv[1], std::stoi(argv[2])) != RESULT_OK) return 3;
  if (client.GetPrjDir(dir) != RESULT_OK) return 1;
  Channel_Key_Value file;
  file.m_strPath = argv[3];                // here
  file.m_strName = dir + "Demo\\run1.tm";  // there
  Channel_Key_Value::ConverValueToXML({file}, request);
  if (client.UpdateFileToDataService(request) != RESULT_OK) return 1;
  if (client.WaitForEnd() != RESULT_OK) return 1;
  std::int64_t held = -1;
  client.AskSize(file.m_strName, held);
  client.Leave(file.m_strName);
  return held == static_cast<std::int64_t>(std::filesystem::file_size(argv[3])) ? 0 : 1;
}
