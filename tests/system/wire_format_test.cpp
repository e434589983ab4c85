// The datagrams between the service API and its proxies.
#include <gtest/gtest.h>

#include <string>

#include "demo/common/wire_format.h"

namespace demo {

namespace {

TEST(WireFormatTest, WritesAndReadsThese) {
  const std::string bytes = Encode({MessageKind::SYSTEM_ERROR, 0x01020304});
  EXPECT_EQ(bytes, "KVRE\1\2\3\4");
  ASSERT_TRUE(Decode(bytes));
  EXPECT_EQ(Decode(bytes)->kind, MessageKind::SYSTEM_ERROR);
  EXPECT_EQ(Decode(bytes)->id, 0x01020304);
  EXPECT_TRUE(Decode("KVRQ\xff\xff\xff\xff") && Decode("KVRSabcd"));
  for (const char* other : {"", "KVRSabc", "KVRSabcde", "KVRXabcd", "QRVKabcd"}) {
    EXPECT_FALSE(Decode(other)) << other;
  }
}

}  // namespace

}  // namespace demo
