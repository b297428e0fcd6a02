#include <thread>

#include <Poco/AutoPtr.h>
#include <Poco/Notification.h>
#include <Poco/NotificationQueue.h>

#include "event/eventqueue.h"

namespace bench {

namespace {

class Event : public Poco::Notification {
public:
    explicit Event(int id) : m_id(id) {}
    const int m_id;
};

class PocoQueue : public EventQueue {
public:
    explicit PocoQueue(const std::vector<Handler*>& handlers) : m_worker([this, handlers] { Work(handlers); }) {}
    ~PocoQueue() override {
        m_isOver = true;
        m_queue.wakeUpAll();
        m_worker.join();
    }

    void Post() override { m_queue.enqueueNotification(new Event(kEvent)); }

private:
    void Work(const std::vector<Handler*>& handlers) {
        while (!m_isOver) {
            const Poco::AutoPtr<Poco::Notification> event(m_queue.waitDequeueNotification());
            if (!event) continue;
            const int id = static_cast<const Event&>(*event).m_id;
            for (Handler* handler : handlers) handler->HandleLightEvent(id, nullptr);
        }
    }

    std::atomic<bool> m_isOver{false};
    Poco::NotificationQueue m_queue;
    std::thread m_worker;
};

}  // namespace

std::unique_ptr<EventQueue> MakePocoQueue(const std::vector<Handler*>& handlers) {
    return std::make_unique<PocoQueue>(handlers);
}

}  // namespace bench
