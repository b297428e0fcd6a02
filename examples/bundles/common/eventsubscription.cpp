#include "eventsubscription.h"

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

using NS_BUNDLEMGR1::LightEventHandler;
using NS_BUNDLEMGR1::LightEventMgr;
using NS_BUNDLEMGR1::LightEventParam;

namespace alarms {

/// What the event manager calls: passes the event on for as long as it is open.
class EventSubscription::Gate : public LightEventHandler {
public:
    explicit Gate(Function function) : m_function(std::move(function)) {}

    /// All gates that were ever made. One is a few bytes, and a service makes one when
    /// it starts.
    static Gate* Make(Function function) {
        static std::mutex mutex;
        static std::vector<std::unique_ptr<Gate>> gates;
        const std::lock_guard<std::mutex> guard(mutex);
        gates.push_back(std::make_unique<Gate>(std::move(function)));
        return gates.back().get();
    }

    void HandleLightEvent(int, LightEventParam* param) override {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_function) m_function(param);
    }

    void Shut() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_function = nullptr;
    }

private:
    std::mutex m_mutex;  // held while the function runs
    Function m_function;
};

EventSubscription::~EventSubscription() {
    Close();
}

void EventSubscription::Open(int eventId, Function function) {
    Close();
    m_eventId = eventId;
    m_gate = Gate::Make(std::move(function));
    LightEventMgr::Instance()->RegisterHandler(m_eventId, m_gate);
}

void EventSubscription::Close() {
    if (m_gate == nullptr) return;
    LightEventMgr::Instance()->UnRegisterHandler(m_eventId, m_gate);
    m_gate->Shut();
    m_gate = nullptr;
}

}  // namespace alarms
