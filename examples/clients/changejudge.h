// Which changes of the agent are news to a client.
#pragma once

#include <cstdint>

/// Where in the life of the agent a change or a list stands, see alarm.idl.
struct ChangePosition {
    std::uint64_t agentStart = 0;
    std::uint64_t number = 0;
};

/// What a change is to a client.
struct ChangeJudgement {
    bool isNews = true;      ///< Else the client has it already.
    bool restarted = false;  ///< The agent was restarted before it.
    std::uint64_t lost = 0;  ///< So many changes right before it did not arrive.
};

/// Remembers up to where a client knows the alarms. Not thread-safe.
class ChangeJudge {
public:
    /// @param listed of the last change that the client's list contains
    void SetListed(const ChangePosition& listed) {
        m_last = listed;
        m_knows = true;
    }

    /// Judges the change that has just arrived, and remembers it. Without a list before
    /// it the first one is where the client begins.
    ChangeJudgement Judge(const ChangePosition& change);

private:
    bool m_knows = false;
    ChangePosition m_last;
};
