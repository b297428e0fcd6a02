// Records for the private parts of the log.
#pragma once

#include <bundlemgr/log.h>

#include "src/log/recordsource.h"
#include "src/log/recordview.h"

namespace test {

/// A record with texts of its own, as it goes to the file.
class RecordOf {
public:
    explicit RecordOf(NS_BUNDLEMGR1::DebugInfo info)
        : m_info(std::move(info)), m_source(m_room.Take(m_info.bundle, m_info.service, m_info.file)) {}

    operator NS_BUNDLEMGR1::RecordView() const {  // NOLINT(google-explicit-constructor)
        return {m_info.level, m_info.time, m_info.thread, m_source, m_info.line, m_info.text};
    }

private:
    const NS_BUNDLEMGR1::DebugInfo m_info;
    NS_BUNDLEMGR1::RecordSource m_room;
    const std::string_view m_source;
};

}  // namespace test
