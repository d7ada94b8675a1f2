// The tests' main. Threads that outlive the last test are stopped where they
// hold no lock of the system's own: Wine ends them wherever they are, and then
// waits for such a lock, for good.

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>

namespace {

// Of ntdll, in all versions; it takes no memory, whose lock a thread that is
// stopped already may hold.
using NextThread = LONG(WINAPI*)(HANDLE, HANDLE, ACCESS_MASK, ULONG, ULONG, HANDLE*);

void StopOtherThreads() {
  const auto next = reinterpret_cast<NextThread>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtGetNextThread")));
  HANDLE thread = nullptr;
  while (next(GetCurrentProcess(), thread, THREAD_ALL_ACCESS, 0, 0, &thread) == 0) {
    if (GetThreadId(thread) == GetCurrentThreadId()) continue;
    SuspendThread(thread);
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    GetThreadContext(thread, &context);  // returns once it stands still
  }
}

}  // namespace

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const int status = RUN_ALL_TESTS();
  std::fflush(nullptr);
  StopOtherThreads();
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(status));
}
