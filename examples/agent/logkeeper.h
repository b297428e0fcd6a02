// What the host does for the log.
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "lossreport.h"

/// Looks after the log on behalf of those outside the process. Thread-safe.
class LogKeeper {
public:
    /// The log is in use.
    /// @param trouble whether it has been said that it cannot be written
    void Begin(bool trouble);

    /// Goes on in a new file; nothing happens after `End`.
    void OpenNewFile();

    /// @return what is to be said of records that are lost, one line, or ""
    std::string Loss();

    /// The log is about to be destroyed; whoever is at it finishes first.
    void End();

private:
    std::mutex m_mutex;  // guards what follows, and is held over what is done to the log
    bool m_ended = false;
    std::unique_ptr<LossReport> m_loss;  // from `Begin` on
};
