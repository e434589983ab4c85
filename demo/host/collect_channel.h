// The channel to the collect servers, with names for them.
#ifndef KORVAIN_DEMO_COLLECT_CHANNEL_H_
#define KORVAIN_DEMO_COLLECT_CHANNEL_H_

#include <cstddef>
#include <string>
#include <vector>

#include "demo/common/console.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

// A server that has gone is left as soon as the network says so.
class CollectChannel {
 public:
  CollectChannel(const std::vector<std::string>& urls, KorvainService::Logger& logger,
                 Console& console);

  // To be called in every round, and before a report, which a server that has gone would cost.
  void Update();

  // Sends the datagrams of a report. Whether the kernel took them all.
  bool Send(const std::string& report, size_t datagram_size);

  // Collect servers are called by their place in the list; "none" while the channel is closed.
  std::string CurrentName() const;
  std::string CurrentUrl() const;  // empty then

 private:
  const std::vector<std::string> m_urls;
  Console& m_console;
  KorvainService::UDPClientMgr m_channel;
  std::string m_last_used;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_COLLECT_CHANNEL_H_
