// An event that has got its block.
#pragma once

#include <ace/Message_Block.h>

#include <bundlemgr/event.h>

#include "src/event/postedevent.h"

namespace NS_BUNDLEMGR1 {

/// A message block without data: it reaches none of the queue's water marks, so
/// posting never waits.
///
/// Its end does not touch the parameter: an event that is refused or dropped leaves
/// its parameter alone.
class LightInternalMessage final : public ACE_Message_Block {
public:
    explicit LightInternalMessage(const PostedEvent& event)
        : m_nEventId(event.eventId),
          m_nExtra(event.extra),
          m_pParam(event.param),
          m_bAutoDelete(event.isParamDeleted) {}

    PostedEvent Posted() const { return {m_nEventId, m_nExtra, m_pParam, m_bAutoDelete}; }

    int m_nEventId;
    int m_nExtra;
    LightEventParam* m_pParam;
    bool m_bAutoDelete;
};

}  // namespace NS_BUNDLEMGR1
