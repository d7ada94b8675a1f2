// Progress of a transfer, for people and for programs.

#include "programs/kqft/Progress.h"

#include <algorithm>
#include <cmath>

#include "platform/System.h"
#include "programs/Terminal.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"

namespace {

constexpr int kRedrawIntervalMs = 100;
constexpr int kJsonIntervalMs = 1000;
constexpr int kLineIntervalMs = 5000;
constexpr std::int64_t kSilentMs = 5000;
constexpr std::size_t kBarWidth = 20;

int ChooseIntervalMs(const COutput& output) {
  if (output.IsLive()) return kRedrawIntervalMs;
  return output.IsJson() ? kJsonIntervalMs : kLineIntervalMs;
}

double Fraction(const STransferProgress& progress) {
  if (progress.m_llTotal <= 0) return 0;
  return std::min(1.0,
                  static_cast<double>(progress.m_llDone) / static_cast<double>(progress.m_llTotal));
}

std::string Bar(double fraction) {
  const auto filled = static_cast<std::size_t>(fraction * kBarWidth);
  std::string bar = "[" + std::string(filled, '=') + std::string(kBarWidth - filled, ' ') + "]";
  if (filled > 0 && filled < kBarWidth) bar[filled] = '>';
  return bar;
}

// Columns, not bytes: continuation bytes of UTF-8 take none.
std::string CutToWidth(const std::string& text, std::size_t width) {
  std::size_t columns = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0U) == 0x80U) continue;
    if (++columns > width) return text.substr(0, i);
  }
  return text;
}

}  // namespace

CProgress::CProgress(COutput& output, std::string command)
    : m_output(output),
      m_strCommand(std::move(command)),
      m_nIntervalMs(ChooseIntervalMs(output)),
      m_llNextMs(System().SteadyMilliseconds() +
                 (output.IsLive() || output.IsJson() ? 0 : m_nIntervalMs)) {}

void CProgress::Show(const STransferProgress& progress) {
  const std::int64_t now = System().SteadyMilliseconds();
  {
    const std::lock_guard guard(m_mutex);
    m_latest = progress;
  }
  const bool silent = progress.m_llSilentMs >= kSilentMs;
  if (m_output.IsJson() && silent && !m_bSilent && !m_output.IsQuiet()) {
    m_output.Json(CJsonObject("waiting")
                      .Text("message", "waiting for the server")
                      .Text("command", m_strCommand)
                      .Number("seconds", progress.m_llSilentMs / 1000));
  }
  m_bSilent = silent;
  if (m_output.IsQuiet() || now < m_llNextMs) return;
  m_llNextMs = now + m_nIntervalMs;
  if (m_output.IsJson()) {
    m_output.Json(CJsonObject("status")
                      .Text("command", m_strCommand)
                      .Number("bytes_done", progress.m_llDone)
                      .Number("bytes_total", progress.m_llTotal)
                      .Number("files_done", static_cast<std::int64_t>(progress.m_nFilesDone))
                      .Number("files_total", static_cast<std::int64_t>(progress.m_nFilesTotal))
                      .Number("bytes_per_second", std::llround(progress.m_dBytesPerSecond))
                      .Name("file", progress.m_strFile));
  }
  if (m_output.IsLive()) {
    m_output.Live(ProgressLine(progress, static_cast<std::size_t>(TerminalWidth()) - 1));
  } else if (!m_output.IsJson()) {
    m_output.Tell(ProgressLine(progress, 0));
  }
}

void CProgress::ShowNow() {
  STransferProgress latest;
  {
    const std::lock_guard guard(m_mutex);
    latest = m_latest;
  }
  const bool begun = latest.m_nFilesTotal > 0;
  m_output.Reply(begun ? ProgressLine(latest, 0) : m_strCommand + ": nothing has moved yet");
}

void CProgress::End() {
  m_output.Live("");
}

std::string ProgressLine(const STransferProgress& progress, std::size_t width) {
  const double rate = progress.m_dBytesPerSecond;
  const double fraction = Fraction(progress);
  const std::string percent = std::to_string(static_cast<int>(fraction * 100)) + "%";
  std::string line = Bar(fraction) +
                     std::string(5 - std::min<std::size_t>(percent.size(), 4), ' ') + percent +
                     "  " + FormatSize(progress.m_llDone) + " of " + FormatSize(progress.m_llTotal);
  if (progress.m_llSilentMs >= kSilentMs) {
    line += "  waiting for the server (" + std::to_string(progress.m_llSilentMs / 1000) + " s)";
  } else if (rate >= 1) {
    const auto left = static_cast<double>(progress.m_llTotal - progress.m_llDone) / rate;
    line += "  " + FormatSize(std::llround(rate)) + "/s  " +
            FormatDuration(std::llround(std::max(0.0, left))) + " left";
  }
  line +=
      "  " + std::to_string(progress.m_nFilesDone) + " of " + FormatFiles(progress.m_nFilesTotal);
  if (!progress.m_strFile.empty()) line += "  " + Printable(progress.m_strFile);
  return width == 0 ? line : CutToWidth(line, width);
}
