// Put in front of the daemon's main, which then stands beside the test program's own. Only the
// symbol changes: the function still calls itself main.

#ifndef RENAME_MAIN_H_
#define RENAME_MAIN_H_

int main() __asm__("DhcpRelayAppMain");

#endif  // RENAME_MAIN_H_
