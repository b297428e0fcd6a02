// A safe way for a service to handle events.
#pragma once

#include <functional>

#include <bundlemgr/event.h>

namespace alarms {

/// The registration of one handler function for one event.
///
/// The event manager keeps plain pointers to its handlers and may be about to call one
/// while another thread unregisters it, so a service must not simply unregister and
/// go away: its code may be unmapped the next moment. `Close` does not return while
/// the function runs, and the function is not called any more once it has returned.
/// The object that the event manager points to stays alive in this library, which
/// outlives the event manager.
///
/// Thread safety: `Open` and `Close` for one thread at a time, the function itself runs
/// on the event manager's worker. The function must not close its own subscription,
/// nor wait for anything that the closing thread may hold (in a service's fini: the
/// locks of the bundle manager and of the bundle).
class ZO_PLUGIN_EXPORT EventSubscription {
public:
    using Function = std::function<void(NS_BUNDLEMGR1::LightEventParam*)>;

    EventSubscription() = default;
    ~EventSubscription();
    EventSubscription(const EventSubscription&) = delete;
    EventSubscription& operator=(const EventSubscription&) = delete;

    /// Begins to call `function` with the parameter of each event `eventId`.
    void Open(int eventId, Function function);

    /// Ends it; may be called repeatedly.
    void Close();

private:
    class Gate;

    int m_eventId = 0;
    Gate* m_gate = nullptr;  // never deleted while the process may still dispatch events
};

}  // namespace alarms
