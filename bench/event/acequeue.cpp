#include <thread>

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Message_Block.h>
#include <ace/Message_Queue_T.h>
#include <ace/Synch_Traits.h>

#include "event/eventqueue.h"

namespace bench {

namespace {

class Event : public ACE_Message_Block {
public:
    explicit Event(int id) : m_id(id) {}
    const int m_id;
};

class AceQueue : public EventQueue {
public:
    explicit AceQueue(const std::vector<Handler*>& handlers) : m_worker([this, handlers] { Work(handlers); }) {}
    ~AceQueue() override {
        m_queue.deactivate();
        m_worker.join();
        m_queue.close();
    }

    void Post() override { m_queue.enqueue_tail(new Event(kEvent)); }

private:
    void Work(const std::vector<Handler*>& handlers) {
        ACE_Message_Block* block = nullptr;
        while (m_queue.dequeue_head(block) != -1) {
            const int id = static_cast<Event*>(block)->m_id;
            for (Handler* handler : handlers) handler->HandleLightEvent(id, nullptr);
            block->release();
        }
    }

    ACE_Message_Queue<ACE_MT_SYNCH> m_queue;
    std::thread m_worker;
};

}  // namespace

std::unique_ptr<EventQueue> MakeAceQueue(const std::vector<Handler*>& handlers) {
    return std::make_unique<AceQueue>(handlers);
}

}  // namespace bench
