// Codes of the C face: the library's own in its words, the others in theirs.

#include "bindings/c/Face.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"
#include "transfer/Version.h"

namespace {

constexpr std::int32_t kMajor = 1000000;
constexpr std::int32_t kMinor = 1000;

}  // namespace

std::int32_t kqft_version() {
  return KQFT_VERSION_MAJOR * kMajor + KQFT_VERSION_MINOR * kMinor + KQFT_VERSION_PATCH;
}

const char* kqft_version_text() {
  return KqftVersion();
}

const char* kqft_describe(std::int32_t code) {
  switch (code) {
    case KQFT_FAILED:
      return "it failed";
    case KQFT_E_REQUEST_UNKNOWN:
      return "the server does not know this request: it may be older";
    case KQFT_E_SERVER_TAKEN:
      return "another program of this user is busy with the server";
    case KQFT_E_OTHER_STORAGE:
      return "servers that are named as those of one storage have other project directories";
    case KQFT_E_DELETE_REFUSED:
      return "refused: the server deletes no projects";
    case KQFT_E_CANCELLED:
      return "cancelled; what has arrived is kept";
    case KQFT_E_INCOMPLETE:
      return "it ended, and not everything is whole";
    case KQFT_E_DIFFERENT:
      return "the two sides are not the same";
    case KQFT_E_NULL:
      return "a handle, string or place for a result is missing";
    case KQFT_E_SIZE:
      return "the size field of a struct is none of this version";
    case KQFT_E_ARGUMENT:
      return "a value makes no sense";
    case KQFT_E_IN_USE:
      return "the handle is in use";
    case KQFT_E_MEMORY:
      return "no memory";
    case KQFT_E_UNEXPECTED:
      return "an error inside of the library";
    case KQFT_E_KIND:
      return "the result has entries of another kind";
    case KQFT_E_DIRECTORY:
      return "the directory cannot be used";
    case KQFT_E_LISTEN:
      return "cannot listen: the port is in use, or the address is not to be had";
    case KQFT_E_NO_EVENT:
      return "nothing has happened in that time";
    default:
      return ResultMeaning(code);
  }
}
