#include "demo/host/collect_channel.h"

#include <fmt/core.h>

#include <algorithm>

#include "line_protocol/report_packer.h"

namespace demo {

using namespace KorvainService;

CollectChannel::CollectChannel(const std::vector<std::string>& urls, Logger& logger,
                               Console& console)
    : m_urls(urls), m_console(console) {
  std::vector<const char*> texts;
  for (const std::string& url : urls) texts.push_back(url.c_str());
  m_channel.Init(&logger);
  m_channel.SetNoticeUnreachable(true);
  m_channel.AddCollectServerAddress(texts.data(), static_cast<int32_t>(texts.size()));
  m_last_used = CurrentName();
}

void CollectChannel::Update() {
  m_channel.Update();
  const std::string current = CurrentName();
  if (current == m_last_used || m_channel.GetCurrentUrl() == nullptr) return;
  m_console.Announce("{} does not answer: reports go to {} from now on", m_last_used, current);
  m_last_used = current;
}

bool CollectChannel::Send(const std::string& report, size_t datagram_size) {
  const DatagramSplit split = SplitIntoDatagrams(report, datagram_size);
  bool is_taken = split.lines_left_out == 0;
  for (const std::string_view datagram : split.datagrams) {
    const int result = m_channel.Send(datagram.data(), static_cast<int>(datagram.size()));
    is_taken = is_taken && result == 0;
  }
  m_console.Note("report: {} datagrams, {} bytes, {} lines too long, {}", split.datagrams.size(),
                 report.size(), split.lines_left_out, is_taken ? "handed over" : "LOST");
  return is_taken;
}

std::string CollectChannel::CurrentName() const {
  const auto url = std::find(m_urls.begin(), m_urls.end(), CurrentUrl());
  return url == m_urls.end() ? "none" : fmt::format("collect-{}", url - m_urls.begin() + 1);
}

std::string CollectChannel::CurrentUrl() const {
  const char* const url = m_channel.GetCurrentUrl();
  return url == nullptr ? "" : url;
}

}  // namespace demo
