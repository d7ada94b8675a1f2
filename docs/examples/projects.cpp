#include <chrono>
#include <iostream>
#include <string>
#include <thread>

#include "transfer/ProjectClient.h"

struct CProgress : ITransferObserver {
  void OnProgress(const STransferProgress& progress) override {
    std::cout << "\r" << progress.m_llDone << " of " << progress.m_llTotal << std::flush;
  }
};

// projects HOST PORT DIR INTO: sends DIR as the project Demo, with a break, has
// both sides compared, and fetches it into the directory INTO.
int main(int, char** argv) {
  CProgress progress;
  CProjectClient client({argv[1], std::stoi(argv[2]), "", "/tmp/"}, &progress);
  SPutRequest put;
  put.m_vecPaths = {argv[3]};
  put.m_strProject = "Demo";
  std::thread impatient([&client] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    client.Cancel();  // nothing, if the put has ended by then
  });
  STransferResult sent = client.Put(put);
  impatient.join();
  if (sent.m_bCancelled) sent = client.Put(put);  // goes on with what is missing
  SVerifyRequest verify;
  verify.m_strProject = "Demo";
  verify.m_strLocal = argv[3];
  SGetRequest get;
  get.m_strProject = "Demo";
  get.m_strInto = argv[4];
  const bool same = sent.IsDone() && client.Verify(verify).IsSame();
  return same && client.Get(get).IsDone() ? 0 : 1;
}
