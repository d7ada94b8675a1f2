// The version of the loaded library.

#include "transfer/Version.h"

const char* KqftVersion() {
  return KQFT_VERSION_TEXT;
}
