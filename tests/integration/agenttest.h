// What the tests of the agent's text server have in common.
#pragma once

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "support/agent.h"
#include "support/lineclient.h"

namespace test {

/// What a subscriber is told of an alarm that RaiseLine raises.
inline std::string RaisedText(int sequence, const std::string& id) {
    return "RAISED " + std::to_string(sequence) + " id=" + id + ";object=NE-" + id +
           ";severity=major;cause=link down;time=12:00:00;text=trouble;ack.user=\n";
}

/// A client that has the snapshot of an empty table.
inline std::unique_ptr<LineClient> Subscriber(const Agent& agent, const LineClient::Settings& settings = {}) {
    auto client = std::make_unique<LineClient>(agent.TextPort(), settings);
    client->Send("SUBSCRIBE\n");
    EXPECT_EQ(client->ReadThrough("END\n"), "SNAPSHOT 0 0\nEND\n");
    return client;
}

}  // namespace test
