// What the host's queue of datagrams does for a receiver with an ordinary buffer.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "demo/common/udp_socket.h"
#include "demo/host/datagram_queue.h"
#include "line_protocol/report_packer.h"
#include "service_api/korvain/korvain_service_constant.h"

namespace demo {

namespace {

using namespace KorvainService;
using TimePoint = DatagramQueue::TimePoint;

constexpr int ZONES = 8;
constexpr int64_t LINES = ZONES * (1 + STATISTIC_MAX_TABLE_COUNT + STATISTIC_MAX_ACCESS_COUNT);
constexpr int UNPACED = 100000;

// Takes at most so many datagrams of those that wait. Their lines.
int64_t TakeLines(UdpSocket& socket, int most_datagrams) {
  int64_t lines = 0;
  const auto take = [&lines](const Datagram& datagram) {
    lines += std::count(datagram.bytes.begin(), datagram.bytes.end(), '\n');
  };
  socket.TakeWaiting(take, most_datagrams);
  return lines;
}

// 8 zones report at once to a receiver whose turn comes every 8 ms, when it takes what 8 ms can
// bring at the host's usual pace. The lines that it gets.
int64_t PlayBurst(size_t per_millisecond) {
  constexpr int TURN_MS = 8;
  // With the room that Linux gives a receiver who does not ask for any.
  UdpSocket receiver(uint16_t{0}, 106496);  // the kernel doubles it
  const sockaddr_in to = ParseUdpUrl(receiver.LocalUrl()).value();
  const UdpSocket sender(std::nullopt);
  const auto record = std::make_unique<SERVICEAPISTATISTIC>();
  record->nTableCount = STATISTIC_MAX_TABLE_COUNT;
  record->iAccessCount = STATISTIC_MAX_ACCESS_COUNT;
  DatagramQueue queue(per_millisecond);
  int handed_over = 0;
  for (int zone = 0; zone < ZONES; ++zone) {
    queue.Add(PackReport(*record, {}), 1400, [&](bool is_done) { handed_over += is_done; });
  }
  int64_t received = 0;
  for (int ms = 0; !queue.IsEmpty(); ++ms) {
    queue.SendDue(TimePoint(std::chrono::milliseconds(ms)),
                  [&](auto datagram) { return sender.Send(datagram, to); });
    if (ms % TURN_MS == 0) received += TakeLines(receiver, DatagramQueue::USUAL_PACE * TURN_MS);
  }
  EXPECT_EQ(handed_over, ZONES) << "no Send tells of a loss";
  return received + TakeLines(receiver, UNPACED);
}

TEST(PacingTest, PacedBurstArrivesWhereUnpacedOneIsLost) {
  EXPECT_EQ(PlayBurst(DatagramQueue::USUAL_PACE), LINES);
  EXPECT_LT(PlayBurst(UNPACED), LINES / 2);
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
  SendDue(0);
  Add("bb\ncc\n");  // there is room again
  EXPECT_EQ(m_done.size(), 1u);
}

}  // namespace

}  // namespace demo
