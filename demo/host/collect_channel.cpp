#include "demo/host/collect_channel.h"

#include <algorithm>
#include <utility>

namespace demo {

using namespace KorvainService;

namespace {

constexpr size_t DATAGRAM_SIZE = 1400;  // fits an Ethernet frame

}  // namespace

CollectChannel::CollectChannel(const HostOptions& options, Logger& logger, Console& console)
    : m_urls(options.collect_urls), m_console(console) {
  std::vector<const char*> texts;
  for (const std::string& url : m_urls) texts.push_back(url.c_str());
  m_channel.Init(&logger);
  m_channel.SetNoticeUnreachable(true);
  m_channel.AddCollectServerAddress(texts.data(), static_cast<int32_t>(texts.size()));
  m_last_used = CurrentName();
}

void CollectChannel::Update() {
  FollowServer();
  m_queue.SendDue(std::chrono::steady_clock::now(), [this](std::string_view datagram) {
    FollowServer();  // so that a server that has gone costs one datagram
    return m_channel.Send(datagram.data(), static_cast<int>(datagram.size())) == 0;
  });
}

void CollectChannel::FollowServer() {
  m_channel.Update();
  const std::string current = CurrentName();
  if (current == m_last_used || m_channel.GetCurrentUrl() == nullptr) return;
  m_console.Announce("reports go to {} from now on, no longer to {}", current, m_last_used);
  m_last_used = current;
}

void CollectChannel::Send(std::string report, DatagramQueue::Done done) {
  m_queue.Add(std::move(report), DATAGRAM_SIZE, std::move(done));
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
