#include <cstdlib>

#include <bundlemgr/event.h>

#include "event/eventqueue.h"

using namespace NS_BUNDLEMGR1;

namespace bench {

namespace {

class Forward : public LightEventHandler {
public:
    explicit Forward(Handler* handler) : m_handler(handler) {}
    void HandleLightEvent(int eventId, LightEventParam*) override { m_handler->Handle(eventId); }

private:
    Handler* const m_handler;
};

class Ours : public EventQueue {
public:
    explicit Ours(const std::vector<Handler*>& handlers) : m_events(LightEventMgr::Instance()) {
        for (Handler* handler : handlers) {
            m_handlers.push_back(std::make_unique<Forward>(handler));
            m_events->RegisterHandler(kEvent, m_handlers.back().get());
        }
        if (m_events->Init() != 1) std::abort();
    }
    ~Ours() override { LightEventMgr::Destroy(); }

    void Post() override { m_events->Push_Msg(kEvent, nullptr, 0); }

private:
    LightEventMgr* const m_events;
    std::vector<std::unique_ptr<Forward>> m_handlers;
};

}  // namespace

std::unique_ptr<EventQueue> MakeOurQueue(const std::vector<Handler*>& handlers) {
    return std::make_unique<Ours>(handlers);
}

}  // namespace bench
