// Ends a program by SIGKILL in the middle of a call that was chosen beforehand.
//
//   KQFT_KILL_AT=write:12 LD_PRELOAD=libkill_at_call.so kqft put ...
//
// The 12th write to a file at a position leaves half of its bytes; the third
// rename of "rename:3", or removal of "remove:3", is not begun. Stands before
// the C library.

#include <dlfcn.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <string_view>

namespace {

std::atomic<int> g_writes{0};
std::atomic<int> g_renames{0};
std::atomic<int> g_removals{0};

bool IsChosen(std::string_view kind, std::atomic<int>& calls) {
  const char* const plan = std::getenv("KQFT_KILL_AT");
  const int call = ++calls;
  if (plan == nullptr || std::string_view(plan).substr(0, kind.size()) != kind) return false;
  return std::atoi(plan + kind.size()) == call;
}

template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

ssize_t WriteHalf(int fd, const void* data, std::size_t size, off_t position) {
  static auto* const real = Real<ssize_t(int, const void*, std::size_t, off_t)>("pwrite");
  if (!IsChosen("write:", g_writes)) return real(fd, data, size, position);
  real(fd, data, size / 2, position);
  return std::raise(SIGKILL);
}

// Of one part half, of several the first half of them.
ssize_t WriteHalfOfParts(int fd, const iovec* parts, int count, off_t position) {
  if (count == 1) return WriteHalf(fd, parts->iov_base, parts->iov_len, position);
  static auto* const real = Real<ssize_t(int, const iovec*, int, off_t)>("pwritev");
  if (!IsChosen("write:", g_writes)) return real(fd, parts, count, position);
  real(fd, parts, count / 2, position);
  return std::raise(SIGKILL);
}

template <typename Function, typename... Arguments>
int Call(const char* name, std::string_view kind, std::atomic<int>& calls, Arguments... arguments) {
  auto* const real = Real<Function>(name);
  if (IsChosen(kind, calls)) std::raise(SIGKILL);
  return real(arguments...);
}

}  // namespace

extern "C" {

ssize_t pwrite(int fd, const void* data, std::size_t size, off_t position) {
  return WriteHalf(fd, data, size, position);
}
ssize_t pwrite64(int fd, const void* data, std::size_t size, off_t position) {
  return WriteHalf(fd, data, size, position);
}

ssize_t pwritev(int fd, const iovec* parts, int count, off_t position) {
  return WriteHalfOfParts(fd, parts, count, position);
}
ssize_t pwritev64(int fd, const iovec* parts, int count, off_t position) {
  return WriteHalfOfParts(fd, parts, count, position);
}

int rename(const char* from, const char* to) noexcept {
  return Call<int(const char*, const char*)>("rename", "rename:", g_renames, from, to);
}
int renameat(int one, const char* from, int other, const char* to) noexcept {
  return Call<int(int, const char*, int, const char*)>("renameat", "rename:", g_renames, one, from,
                                                       other, to);
}
int renameat2(int one, const char* from, int other, const char* to, unsigned flags) noexcept {
  return Call<int(int, const char*, int, const char*, unsigned)>("renameat2", "rename:", g_renames,
                                                                 one, from, other, to, flags);
}

int unlink(const char* path) noexcept {
  return Call<int(const char*)>("unlink", "remove:", g_removals, path);
}
int unlinkat(int directory, const char* path, int flags) noexcept {
  return Call<int(int, const char*, int)>("unlinkat", "remove:", g_removals, directory, path,
                                          flags);
}
}
