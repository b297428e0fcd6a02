// The setting of how many clients the text server takes at a time, with which others that
// need descriptors reckon, too.
#pragma once

namespace alarms {

namespace TextClients {

constexpr char ITEM[] = "AsciiMaxClients";
constexpr int DEFAULT = 32;
constexpr int MIN = 1;
constexpr int MAX = 512;

}  // namespace TextClients

}  // namespace alarms
