// Put in front of the daemon's main, which then stands beside the test program's own. Only the
// symbol changes: the function still calls itself main.

#ifndef TESTS_UNIT_SRC_DHCP_RELAY_APP_RENAME_MAIN_H_
#define TESTS_UNIT_SRC_DHCP_RELAY_APP_RENAME_MAIN_H_

int main() __asm__("DhcpRelayAppMain");

#endif  // TESTS_UNIT_SRC_DHCP_RELAY_APP_RENAME_MAIN_H_
