#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>

#include <nettypes/ipv4_addr.h>

namespace {

using nettypes::IPv4Addr;

TEST(IPv4Addr, IsUnspecifiedUnlessMadeFromAnAddress) {
  EXPECT_TRUE(IPv4Addr().is_unspecified());
  EXPECT_EQ(IPv4Addr().to_string(), "0.0.0.0");
  EXPECT_FALSE(IPv4Addr::parse("0.0.0.1")->is_unspecified());
}

TEST(IPv4Addr, TakesAndGivesNetworkByteOrder) {
  const in_addr addr{htonl(0xC0000201)};
  EXPECT_EQ(IPv4Addr(addr).to_string(), "192.0.2.1");
  EXPECT_EQ(IPv4Addr(addr).to_in_addr().s_addr, addr.s_addr);
}

TEST(IPv4Addr, ParsesWhatItPrints) {
  for (const char* text : {"0.0.0.0", "10.0.0.1", "255.255.255.255", "1.2.3.4"}) {
    EXPECT_EQ(IPv4Addr::parse(text).value().to_string(), text);
  }
}

TEST(IPv4Addr, RefusesWhatIsNotFourDecimalOctets) {
  for (const std::string_view text :
       {"", "10.0.0", "10.0.0.1.2", "10.0.0.256", "10.0.0.01", " 10.0.0.1", "10.0.0.1 ",
        "10.0.0.1/8", "0x0a.0.0.1", "a.b.c.d", "::1"}) {
    EXPECT_EQ(IPv4Addr::parse(text), std::nullopt) << text;
  }
  EXPECT_EQ(IPv4Addr::parse(std::string_view("10.0.0.1\0x", 10)), std::nullopt);
}

TEST(IPv4Addr, ComparesByValueAndOrdersNumerically) {
  EXPECT_EQ(IPv4Addr::parse("10.0.0.1"), IPv4Addr::parse("10.0.0.1"));
  EXPECT_NE(IPv4Addr::parse("10.0.0.1"), IPv4Addr::parse("10.0.0.2"));
  EXPECT_LT(*IPv4Addr::parse("9.255.255.255"), *IPv4Addr::parse("10.0.0.0"));
}

TEST(IPv4Addr, PrintsDottedToAStream) {
  std::ostringstream out;
  out << *IPv4Addr::parse("192.0.2.7");
  EXPECT_EQ(out.str(), "192.0.2.7");
}

}  // namespace
