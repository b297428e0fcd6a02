#include <utility>

#include <bundlemgr/kit.h>

#include "src/kit/kitlock.h"

namespace NS_BUNDLEMGR1 {

/// What the event manager calls. Lives in this library, and as long as a thread is in it, so
/// that a function may destroy its subscription.
class __attribute__((visibility("hidden"))) EventSubscription::Gate : public LightEventHandler,
                                                                      public std::enable_shared_from_this<Gate> {
public:
    void HandleLightEvent(int, LightEventParam* param) override {
        const std::shared_ptr<Gate> self = shared_from_this();
        const std::shared_ptr<const Function> function = Current();
        if (function != nullptr && *function) (*function)(param);
    }

    void Open(int eventId, Function function) {
        auto opened = std::make_shared<const Function>(std::move(function));
        Close();
        Set(std::move(opened));
        try {
            LightEventMgr* const events = LightEventMgr::Instance();
            if (events != nullptr) events->RegisterHandler(eventId, this);
        } catch (...) {
            Close();
            throw;
        }
    }

    // The function is destroyed after the last call of it.
    void Close() {
        if (!WasOpened()) return;
        const std::shared_ptr<const Function> former = Set(nullptr);
        LightEventMgr::RemoveHandler(this);
    }

private:
    std::shared_ptr<const Function> Current() {
        const KitLock lock;
        return m_function;
    }

    bool WasOpened() {
        const KitLock lock;
        return m_wasOpened;
    }

    /// @return the one before
    std::shared_ptr<const Function> Set(std::shared_ptr<const Function> function) {
        const KitLock lock;
        m_wasOpened = true;
        m_function.swap(function);
        return function;
    }

    std::shared_ptr<const Function> m_function;  // null: closed
    // An `Open` on another thread may register the gate after `Close` has taken the function.
    bool m_wasOpened = false;
};

EventSubscription::EventSubscription() : m_gate(std::make_shared<Gate>()) {}

EventSubscription::~EventSubscription() {
    Close();
}

void EventSubscription::Open(int eventId, Function function) {
    m_gate->Open(eventId, std::move(function));
}

void EventSubscription::Close() {
    m_gate->Close();
}

}  // namespace NS_BUNDLEMGR1
