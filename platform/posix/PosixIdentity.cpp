// Who runs this program.

#include <pwd.h>
#include <unistd.h>

#include "platform/Identity.h"

std::string UserAtHost() {
  passwd entry = {};
  passwd* found = nullptr;
  char text[4096];
  const bool known = getpwuid_r(geteuid(), &entry, text, sizeof text, &found) == 0;
  std::string name = known && found != nullptr ? entry.pw_name : std::to_string(geteuid());
  char host[256] = "";
  if (gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') return name + "@unknown";
  return name + "@" + host;
}

int ProcessId() {
  return getpid();
}
