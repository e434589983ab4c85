// What the host's queue of datagrams does for a receiver with an ordinary buffer.
#include <arpa/inet.h>
#include <fmt/core.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "demo/common/udp_socket.h"
#include "demo/host/datagram_queue.h"
#include "line_protocol/report_packer.h"
#include "service_api/korvain/korvain_service_constant.h"

namespace demo {

namespace {

using namespace KorvainService;
using TimePoint = DatagramQueue::TimePoint;

constexpr size_t UNPACED = 100000;

std::string FullReport(int zone) {
  const auto record = std::make_unique<SERVICEAPISTATISTIC>();
  record->iZoneID = zone;
  record->nTableCount = STATISTIC_MAX_TABLE_COUNT;
  record->iAccessCount = STATISTIC_MAX_ACCESS_COUNT;
  for (int i = 0; i < STATISTIC_MAX_ACCESS_COUNT; ++i) {
    fmt::format("table-{}", i).copy(record->astTableStatistic[i].szTableName, 16);
    fmt::format("10.0.0.{}:9000", i).copy(record->astAccessStatistic[i].stHostInfo.szUrl, 16);
  }
  return PackReport(*record, {});
}

// With the room that Linux gives a receiver who does not ask for any.
class PlainReceiver {
 public:
  PlainReceiver() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
    constexpr int HALF_OF_DEFAULT = 106496;  // the kernel doubles it
    setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &HALF_OF_DEFAULT, sizeof(HALF_OF_DEFAULT));
    m_address.sin_family = AF_INET;
    m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(m_address);
    EXPECT_EQ(bind(m_fd, reinterpret_cast<sockaddr*>(&m_address), size), 0);
    EXPECT_EQ(getsockname(m_fd, reinterpret_cast<sockaddr*>(&m_address), &size), 0);
  }
  ~PlainReceiver() { close(m_fd); }
  PlainReceiver(const PlainReceiver&) = delete;
  PlainReceiver& operator=(const PlainReceiver&) = delete;

  const sockaddr_in& address() const { return m_address; }

  // Takes at most so many datagrams of those that wait. Their lines.
  size_t TakeLines(size_t most_datagrams) const {
    char buffer[65536];
    size_t lines = 0;
    for (size_t i = 0; i < most_datagrams; ++i) {
      const ssize_t size = recv(m_fd, buffer, sizeof(buffer), 0);
      if (size <= 0) break;
      lines += static_cast<size_t>(std::count(buffer, buffer + size, '\n'));
    }
    return lines;
  }

 private:
  int m_fd;
  sockaddr_in m_address{};
};

struct Burst {
  size_t lines_sent = 0;
  size_t lines_received = 0;
  int reports_handed_over = 0;
  int milliseconds = 0;
};

// 8 zones report at once to a receiver whose turn comes every 8 ms, when it takes what 8 ms can
// bring at the host's usual pace.
Burst PlayBurst(size_t per_millisecond) {
  constexpr int ZONES = 8;
  constexpr size_t DATAGRAM_SIZE = 1400;
  constexpr int TURN_MS = 8;
  const PlainReceiver receiver;
  const UdpSocket sender(std::nullopt);
  Burst burst;
  DatagramQueue queue(per_millisecond);
  for (int zone = 1; zone <= ZONES; ++zone) {
    const std::string report = FullReport(zone);
    burst.lines_sent += static_cast<size_t>(std::count(report.begin(), report.end(), '\n'));
    queue.Add(report, DATAGRAM_SIZE,
              [&burst](bool is_handed_over) { burst.reports_handed_over += is_handed_over; });
  }
  for (; !queue.IsEmpty(); ++burst.milliseconds) {
    queue.SendDue(
        TimePoint(std::chrono::milliseconds(burst.milliseconds)),
        [&](std::string_view datagram) { return sender.Send(datagram, receiver.address()); });
    if (burst.milliseconds % TURN_MS == 0) burst.lines_received += receiver.TakeLines(8 * TURN_MS);
  }
  burst.lines_received += receiver.TakeLines(UNPACED);
  fmt::print("{:6} datagrams/ms: {} of {} lines received, {} ms\n", per_millisecond,
             burst.lines_received, burst.lines_sent, burst.milliseconds);
  return burst;
}

TEST(PacingTest, PacedBurstArrivesWhereUnpacedOneIsLost) {
  const Burst paced = PlayBurst(8);
  EXPECT_EQ(paced.reports_handed_over, 8);
  EXPECT_EQ(paced.lines_sent, 8u * (1 + 256 + 256));
  EXPECT_EQ(paced.lines_received, paced.lines_sent);

  const Burst unpaced = PlayBurst(UNPACED);
  EXPECT_EQ(unpaced.reports_handed_over, 8);  // no Send tells of the loss
  EXPECT_LT(unpaced.lines_received, unpaced.lines_sent / 2);
}

class DatagramQueueTest : public testing::Test {
 protected:
  // Adds a report of which each line is a datagram.
  void Add(const std::string& lines) {
    m_queue.Add(lines, 4, [this](bool is_handed_over) { m_done.push_back(is_handed_over); });
  }

  void SendDue(int microseconds) {
    m_queue.SendDue(TimePoint(std::chrono::microseconds(microseconds)), [this](auto datagram) {
      m_sent += datagram;
      return datagram != m_refused;
    });
  }

  DatagramQueue m_queue{2};
  std::string m_sent;
  std::string m_refused;
  std::vector<bool> m_done;
};

TEST_F(DatagramQueueTest, SendsSoManyAMillisecondInTheirOrder) {
  Add("aa\nbb\ncc\n");
  Add("dd\n");
  SendDue(5000);
  SendDue(5999);
  EXPECT_EQ(m_sent, "aa\nbb\n");
  EXPECT_TRUE(m_done.empty());
  SendDue(6000);
  EXPECT_EQ(m_sent, "aa\nbb\ncc\ndd\n");
  EXPECT_EQ(m_done, (std::vector<bool>{true, true}));
  EXPECT_TRUE(m_queue.IsEmpty());
}

TEST_F(DatagramQueueTest, TellsOfReportsThatWentInPart) {
  m_refused = "aa\n";
  Add("aa\nbb\n");
  Add("too long\ncc\n");
  Add("too long\n");  // nothing can be sent
  EXPECT_EQ(m_done, std::vector<bool>{false});
  SendDue(0);
  SendDue(1000);
  EXPECT_EQ(m_sent, "aa\nbb\ncc\n");
  EXPECT_EQ(m_done, (std::vector<bool>{false, false, false}));
}

TEST_F(DatagramQueueTest, RefusesWhatDoesNotFit) {
  std::string most;
  for (size_t i = 0; i < DatagramQueue::MOST_WAITING - 1; ++i) most += "aa\n";
  Add(most);
  Add("bb\ncc\n");
  EXPECT_EQ(m_done, std::vector<bool>{false});
  Add("dd\n");
  EXPECT_EQ(m_done.size(), 1u);
  SendDue(0);
  Add("bb\ncc\n");  // there is room again
  EXPECT_EQ(m_done.size(), 1u);
}

}  // namespace

}  // namespace demo
