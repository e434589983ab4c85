#include "service_api/udp_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <tuple>

#include "common/korvain_error_code.h"
#include "support/fake_platform.h"
#include "support/recording_logger.h"

namespace KorvainService {
namespace {

constexpr char URL[] = "udp://10.0.0.1:80";

struct UDPClientTest : ::testing::Test {
  UDPClientTest() { platform.is_sending_faked = true; }

  test::FakePlatform platform;
  test::RecordingLogger logger;
  UDPClient client;
};

TEST_F(UDPClientTest, AcceptsTheseUrls) {
  const std::string zeros(119, '0');
  using Case = std::tuple<std::string, std::string, int>;
  for (const auto& [url, ip, port] :
       {Case{"udp://10.0.0.1:8080", "10.0.0.1", 8080}, Case{"tcp://10.0.0.1:80/x", "10.0.0.1", 80},
        Case{"udp://010.0.0.1:1", "8.0.0.1", 1}, Case{"udp://10.0.0.1: +65535", "10.0.0.1", 65535},
        Case{"udp://10.1:4294967297", "10.0.0.1", 1},
        Case{"udp://10.0.0." + zeros + "1:0080", "10.0.0.1", 80}}) {
    EXPECT_EQ(client.Init(url.c_str(), &logger), 0) << url;
    EXPECT_EQ(client.Send("x", 1), 0);
    EXPECT_EQ(inet_ntoa(platform.sent.back().to.sin_addr), ip) << url;
    EXPECT_EQ(ntohs(platform.sent.back().to.sin_port), port) << url;
    EXPECT_EQ(logger.TakeText(),
              "700 Send: it send success. send buf len:1, url:" + url.substr(0, 127) + "\n");
  }
}

TEST_F(UDPClientTest, RefusesTheseUrls) {
  const std::string zeros(120, '0');
  using Case = std::tuple<std::string, std::string, std::string>;
  for (const auto& [url, reason, result] :
       {Case{"", "url is too short", ""}, Case{"udp:/", "url is too short", ""},
        Case{"udp://", "no port in url", ""}, Case{"udp://localhost:80", "aton(ip)", ", iret=0"},
        Case{"udp://10.0.0." + zeros + "1:80", "aton(ip)", ", iret=0"},
        Case{"udp://10.0.0.1:0", "atoi(port)", ", iret=0"},
        Case{"udp://10.0.0.1:-5", "atoi(port)", ", iret=-5"},
        Case{"udp://10.0.0.1:65536", "atoi(port)", ", iret=65536"}}) {
    EXPECT_EQ(client.Init(url.c_str(), &logger), GEN_ERR_ERR);
    EXPECT_EQ(logger.TakeText(), "700 ParseURL: parse url failed -- " + reason + ", url=" + url +
                                     result + "\n\n700 Init: ParseURL() failed. url:" + url + "\n");
  }
}

TEST_F(UDPClientTest, SaysWhichCallFailed) {
  const int descriptor = test::NextDescriptor();
  platform.errors[test::SOCKET] = {EMFILE};
  EXPECT_EQ(client.Init(URL, &logger), GEN_ERR_ERR);
  platform.errors[test::SETFL] = {EBADF};
  EXPECT_EQ(client.Init(URL, &logger), GEN_ERR_ERR);
  EXPECT_EQ(test::NextDescriptor(), descriptor + 1) << "kept until Fini or Init";
  EXPECT_STREQ(client.GetUrl(), "");
  EXPECT_EQ(client.Init(URL, &logger), 0);
  EXPECT_EQ(platform.flags_set.at(1), O_RDWR | O_NONBLOCK | O_ASYNC) << "added";
  platform.errors[test::SENDTO] = {EAGAIN};
  EXPECT_EQ(client.Send("abc", 3), GEN_ERR_ERR);
  EXPECT_EQ(logger.TakeText(),
            "700 Init: socket() failed. errno:24, errstr:Too many open files, "
            "url:udp://10.0.0.1:80\n"
            "700 Init: set socket option -- nonblock failed! url=udp://10.0.0.1:80, errno=9, "
            "errstr=Bad file descriptor\n"
            "700 Send: sendto() failed. buf_len:3, url:udp://10.0.0.1:80, sock fd:" +
                std::to_string(descriptor) + "\n");
  EXPECT_EQ(client.Send("abc", 3), 0) << "a failed send does not close";
  platform.errors[test::PENDING] = {ECONNREFUSED};
  EXPECT_EQ(client.TakePendingError(), 0) << "as nothing is noticed";
}

TEST_F(UDPClientTest, SendsWhatIPv4Carries) {
  const std::string buffer(65537, 'x');
  platform.is_sending_faked = false;
  EXPECT_EQ(client.Init(nullptr, &logger), API_ERR_PARAMETER_INVALID) << "but brings the logger";
  EXPECT_EQ(client.Send(buffer.data(), 65536), GEN_ERR_ERR) << "without a socket";
  EXPECT_EQ(client.Send(buffer.data(), 65537), GEN_ERR_ERR);
  EXPECT_EQ(client.Send(buffer.data(), -7), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(client.Send(nullptr, 1), API_ERR_PARAMETER_INVALID);
  EXPECT_EQ(logger.TakeText(),
            "700 Init: NULL == url\n"
            "700 Send: sendto() failed. buf_len:65536, url:, sock fd:-1\n"
            "700 Send: the send buf size(65537) is greater than "
            "MAX_PKG_SIZE_TO_SEND_THROUGH_UDP(65536)\n"
            "700 Send: NULL == buf || buf_len(-7) <= 0\n"
            "700 Send: NULL == buf || buf_len(1) <= 0\n");
  EXPECT_EQ(client.Init("udp://127.0.0.1:9", nullptr), 0);
  EXPECT_EQ(client.Send(buffer.data(), 65508), GEN_ERR_ERR);
  EXPECT_EQ(client.Send(buffer.data(), 65507), 0);
}

TEST_F(UDPClientTest, ClosesDescriptorZeroOnceToo) {
  const int saved = dup(0);
  close(0);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(client.Init(URL, nullptr), 0);
  EXPECT_EQ(client.Send("x", 1), 0);
  EXPECT_EQ(platform.sent.back().fd, 0);
  client.Fini();
  EXPECT_EQ(dup(saved), 0) << "now somebody else's";
  client.Fini();
  EXPECT_NE(test::NextDescriptor(), 0);
  EXPECT_STREQ(client.GetUrl(), URL) << "kept";
  close(saved);
}

}  // namespace
}  // namespace KorvainService
