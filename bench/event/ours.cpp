#include <cstdlib>

#include <bundlemgr/event.h>

#include "event/eventqueue.h"

using namespace NS_BUNDLEMGR1;

namespace bench {

namespace {

class Ours : public EventQueue {
public:
    explicit Ours(const std::vector<Handler*>& handlers) : m_events(LightEventMgr::Instance()) {
        for (Handler* handler : handlers) m_events->RegisterHandler(kEvent, handler);
        if (m_events->Init() != 1) std::abort();
    }
    ~Ours() override { LightEventMgr::Destroy(); }

    void Post() override { m_events->Push_Msg(kEvent, nullptr, 0); }

private:
    LightEventMgr* const m_events;
};

}  // namespace

std::unique_ptr<EventQueue> MakeOurQueue(const std::vector<Handler*>& handlers) {
    return std::make_unique<Ours>(handlers);
}

}  // namespace bench
