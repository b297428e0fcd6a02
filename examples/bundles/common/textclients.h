// The setting of how many clients the text server takes at a time, with which others that
// need descriptors reckon, too.
#pragma once

namespace alarms {

namespace TextClients {

constexpr char ITEM[] = "AsciiMaxClients";
constexpr int STANDARD = 32;
constexpr int LEAST = 1;
constexpr int MOST = 512;

}  // namespace TextClients

}  // namespace alarms
