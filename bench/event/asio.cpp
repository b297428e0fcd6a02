#include <thread>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include "event/eventqueue.h"

namespace bench {

namespace {

class AsioQueue : public EventQueue {
public:
    explicit AsioQueue(const std::vector<Handler*>& handlers)
        : m_handlers(handlers), m_guard(m_context.get_executor()), m_worker([this] { m_context.run(); }) {}
    ~AsioQueue() override {
        m_guard.reset();
        m_context.stop();
        m_worker.join();
    }

    void Post() override {
        boost::asio::post(m_context, [this, id = kEvent] {
            for (Handler* handler : m_handlers) handler->HandleLightEvent(id, nullptr);
        });
    }

private:
    const std::vector<Handler*> m_handlers;
    boost::asio::io_context m_context;
    boost::asio::executor_work_guard<boost::asio::io_context::executor_type> m_guard;
    std::thread m_worker;
};

}  // namespace

std::unique_ptr<EventQueue> MakeAsioQueue(const std::vector<Handler*>& handlers) {
    return std::make_unique<AsioQueue>(handlers);
}

}  // namespace bench
