// One line of the feed.
//
//     event=raise;id=1001;object=NE-17/slot-3;severity=major;cause=loss of signal;time=...;text=...
//     event=change;id=1001;severity=minor
//     event=clear;id=1001
#pragma once

#include <string>
#include <vector>

#include <bundlemgr/base.h>

namespace alarms {

struct FeedLine {
    enum Event { RAISE, CHANGE, CLEAR };

    Event event = RAISE;
    std::string id;
    std::vector<NS_BUNDLEMGR1::NameValueStru> attributes;  ///< By the names of `AttributeNames`.
};

/// @param local  the line in the local character set, without its line end
/// @param line   receives what it says, in UTF-8; unspecified on failure
/// @param reason receives what is wrong with it on failure
/// @return whether the line is well-formed
bool ParseFeedLine(const std::string& local, FeedLine& line, std::string& reason);

}  // namespace alarms
