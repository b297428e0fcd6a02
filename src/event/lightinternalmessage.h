// An event on its way through the event manager's queue.
#pragma once

#include <ace/Message_Block.h>

#include <bundlemgr/event.h>

namespace NS_BUNDLEMGR1 {

/// A message block without data: it reaches none of the queue's water marks, so
/// posting never waits.
///
/// Its end does not touch the parameter: an event that is refused or dropped leaves
/// its parameter alone, only a dispatched one calls `DeleteParam`.
class LightInternalMessage final : public ACE_Message_Block {
public:
    LightInternalMessage(int eventId, int extra, LightEventParam* param)
        : m_nEventId(eventId),
          m_nExtra(extra),
          m_pParam(param),
          m_bAutoDelete(param != nullptr && param->m_bAutoDelete) {}

    /// Deletes the parameter if it was flagged when the event was posted.
    void DeleteParam() {
        if (m_bAutoDelete) delete m_pParam;
        m_pParam = nullptr;
    }

    int m_nEventId;
    int m_nExtra;
    LightEventParam* m_pParam;
    bool m_bAutoDelete;
};

}  // namespace NS_BUNDLEMGR1
