// The channel to the collect servers, with names for them.
#ifndef KORVAIN_DEMO_COLLECT_CHANNEL_H_
#define KORVAIN_DEMO_COLLECT_CHANNEL_H_

#include <string>
#include <vector>

#include "demo/common/console.h"
#include "demo/host/datagram_queue.h"
#include "demo/host/host_options.h"
#include "service_api/korvain_service_statistic.h"

namespace demo {

// A server that has gone is left as soon as the network says so.
class CollectChannel {
 public:
  CollectChannel(const HostOptions& options, KorvainService::Logger& logger, Console& console);

  // To be called in every round: sends what is due.
  void Update();

  // Sends the report in this round and, if it is long, some more; see DatagramQueue::Add.
  void Send(std::string report, DatagramQueue::Done done);
  bool IsIdle() const { return m_queue.IsEmpty(); }

  // Collect servers are called by their place in the list; "none" while the channel is closed.
  std::string CurrentName() const;
  std::string CurrentUrl() const;  // empty then

 private:
  void FollowServer();

  const std::vector<std::string> m_urls;
  Console& m_console;
  KorvainService::UDPClientMgr m_channel;
  DatagramQueue m_queue;
  std::string m_last_used;
};

}  // namespace demo

#endif  // KORVAIN_DEMO_COLLECT_CHANNEL_H_
