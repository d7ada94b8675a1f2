// A relay that stands for a distance: whatever it receives it hands on a fixed
// time later, each way, as fast as it came.
//
//   kqft-relay PORT MILLISECONDS  prints the port it listens on; leads
//                                 each connection to 127.0.0.1:PORT
//
// A direction is a queue of (due, bytes); nothing sleeps for a packet, so that
// any number of them are on their way at once.

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <list>
#include <string>
#include <vector>

#include "bench/posix/Loopback.h"

namespace {

constexpr std::size_t kPieceBytes = 256 << 10;
constexpr std::size_t kMostBytes = 64 << 20;  // of one direction
constexpr std::int64_t kNanoseconds = 1000000000;

std::int64_t Now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * kNanoseconds + time.tv_nsec;
}

void Prepare(int fd) {
  const int on = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  fcntl(fd, F_SETFL, O_NONBLOCK);
}

struct SPiece {
  std::int64_t m_llDue = 0;  // nanoseconds
  std::string m_strBytes;    // empty: the end
  std::size_t m_nSent = 0;
};

struct SDirection {
  int m_nFrom = -1;
  int m_nTo = -1;
  std::deque<SPiece> m_pieces;
  std::size_t m_nBytes = 0;  // queued
  bool m_bEnded = false;     // the end has been read
  bool m_bBlocked = false;   // the receiver takes no more for now
  bool m_bOver = false;      // the end has been handed on

  bool WantsMore() const { return !m_bEnded && m_nBytes < kMostBytes; }

  void Take(std::int64_t delay) {
    std::string bytes(kPieceBytes, '\0');
    const ssize_t n = recv(m_nFrom, bytes.data(), bytes.size(), 0);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
    m_bEnded = bytes.empty();
    m_nBytes += bytes.size();
    m_pieces.push_back({Now() + delay, std::move(bytes)});
  }

  void HandOn(std::int64_t now) {
    m_bBlocked = false;
    while (!m_pieces.empty() && m_pieces.front().m_llDue <= now && !m_bOver) {
      SPiece& piece = m_pieces.front();
      const std::size_t left = piece.m_strBytes.size() - piece.m_nSent;
      if (left == 0) {
        shutdown(m_nTo, SHUT_WR);
        m_bOver = true;
        return;
      }
      const ssize_t n = send(m_nTo, piece.m_strBytes.data() + piece.m_nSent, left, MSG_NOSIGNAL);
      m_bBlocked = n < 0 && errno == EAGAIN;
      if (m_bBlocked) return;
      if (n < 0) {  // nobody receives any more
        shutdown(m_nFrom, SHUT_RD);
        m_bOver = m_bEnded = true;
        return;
      }
      piece.m_nSent += static_cast<std::size_t>(n);
      m_nBytes -= static_cast<std::size_t>(n);
      if (piece.m_nSent == piece.m_strBytes.size()) m_pieces.pop_front();
    }
  }
};

struct SConnection {
  SDirection m_there, m_back;
};

void Accept(int listener, int port, std::list<SConnection>& connections) {
  const int client = accept(listener, nullptr, nullptr);
  const int server = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = Loopback(port);
  if (client < 0) return;
  if (connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close(client);
    close(server);
    return;
  }
  Prepare(client);
  Prepare(server);
  SConnection& connection = connections.emplace_back();
  connection.m_there.m_nFrom = connection.m_back.m_nTo = client;
  connection.m_there.m_nTo = connection.m_back.m_nFrom = server;
}

// Until something arrives, may leave, or is due.
void Wait(std::vector<pollfd>& polled, std::list<SConnection>& connections) {
  std::int64_t due = INT64_MAX;
  for (SConnection& connection : connections) {
    for (SDirection* const way : {&connection.m_there, &connection.m_back}) {
      polled.push_back({way->m_nFrom, static_cast<short>(way->WantsMore() ? POLLIN : 0), 0});
      polled.push_back({way->m_nTo, static_cast<short>(way->m_bBlocked ? POLLOUT : 0), 0});
      // Who has nothing to wait for would hear of the end again and again.
      if (polled.end()[-2].events == 0) polled.end()[-2].fd = -1;
      if (polled.end()[-1].events == 0) polled.end()[-1].fd = -1;
      if (!way->m_pieces.empty() && !way->m_bBlocked && !way->m_bOver) {
        due = std::min(due, way->m_pieces.front().m_llDue);
      }
    }
  }
  const std::int64_t left = std::max<std::int64_t>(due - Now(), 0);
  const timespec wait{static_cast<time_t>(left / kNanoseconds), left % kNanoseconds};
  ppoll(polled.data(), polled.size(), due == INT64_MAX ? nullptr : &wait, nullptr);
}

void Run(int listener, int port, std::int64_t delay) {
  std::list<SConnection> connections;
  while (true) {
    std::vector<pollfd> polled{{listener, POLLIN, 0}};
    Wait(polled, connections);
    std::size_t at = 1;
    for (SConnection& connection : connections) {
      for (SDirection* const way : {&connection.m_there, &connection.m_back}) {
        if (polled[at].revents != 0) way->Take(delay);
        at += 2;
        way->HandOn(Now());
      }
    }
    if (polled[0].revents != 0) Accept(listener, port, connections);
    connections.remove_if([](const SConnection& connection) {
      const bool over = connection.m_there.m_bOver && connection.m_back.m_bOver;
      if (over) {
        close(connection.m_there.m_nFrom);
        close(connection.m_there.m_nTo);
      }
      return over;
    });
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: kqft-relay PORT MILLISECONDS\n");
    return 2;
  }
  const auto delay = static_cast<std::int64_t>(std::atof(argv[2]) * 1e6);
  Run(Listen(64), std::atoi(argv[1]), delay);
}
