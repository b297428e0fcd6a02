#include "iteratorpool.h"

#include <algorithm>
#include <utility>

#include "idlalarm.h"

namespace corba_bundle {

namespace {

constexpr std::size_t kMostIterators = 100;

thread_local IteratorPool::Reply* t_reply = nullptr;

}  // namespace

/// One client's place in a list. The POA counts the references to it, so that it is
/// deleted only after the last call on it has returned.
class IteratorServant : public POA_NbiAlarm::AlarmIterator {
public:
    IteratorServant(IteratorPool& pool, std::shared_ptr<const alarms::AlarmSnapshot> list, std::size_t next)
        : m_pool(pool), m_list(std::move(list)), m_next(next) {}

    CORBA::Boolean next_n(CORBA::ULong how_many, NbiAlarm::AlarmSeq_out alarms) override {
        m_pool.Touch(this);
        bool some = false;
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            some = m_next < m_list->alarms.size();
            alarms = NextBatch(m_list->alarms, m_next, how_many);
        }
        if (!some) m_pool.Destroy(this);
        return some;
    }

    void destroy() override { m_pool.Destroy(this); }

private:
    IteratorPool& m_pool;
    std::mutex m_mutex;  // a client may call from several threads at once
    const std::shared_ptr<const alarms::AlarmSnapshot> m_list;
    std::size_t m_next;
};

IteratorPool::Reply::Reply(IteratorPool& pool) : m_pool(pool) {
    t_reply = this;
}

IteratorPool::Reply::~Reply() {
    t_reply = nullptr;
    if (m_made.in() != nullptr) m_pool.Destroy(m_made.in());
}

void IteratorPool::Reply::Sent() {
    m_made = nullptr;
}

IteratorPool::IteratorPool(PortableServer::POA_ptr poa, std::chrono::seconds longestIdle)
    : m_poa(PortableServer::POA::_duplicate(poa)), m_longestIdle(longestIdle) {}

NbiAlarm::AlarmIterator_ptr IteratorPool::Make(std::shared_ptr<const alarms::AlarmSnapshot> list, std::size_t next) {
    // The variable gives up its reference when this returns; the POA keeps one.
    const PortableServer::Servant_var<IteratorServant> servant(new IteratorServant(*this, std::move(list), next));
    const PortableServer::ObjectId_var id = m_poa->activate_object(servant);
    NbiAlarm::AlarmIterator_var reference = servant->_this();
    IteratorServant* tooMany = nullptr;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_active.size() >= kMostIterators) tooMany = m_active.extract(Idlest()).key();
        m_active[servant] = Clock::now();
    }
    if (tooMany != nullptr) Deactivate(tooMany);
    if (t_reply != nullptr) t_reply->m_made = servant;
    return reference._retn();
}

std::size_t IteratorPool::Reap() {
    std::vector<IteratorServant*> idle;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const auto limit = Clock::now() - m_longestIdle;
        for (auto it = Idlest(); it != m_active.end() && it->second < limit; it = Idlest()) {
            idle.push_back(m_active.extract(it).key());
        }
    }
    for (IteratorServant* const iterator : idle) Deactivate(iterator);
    return idle.size();
}

void IteratorPool::Touch(IteratorServant* iterator) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto it = m_active.find(iterator);
    if (it != m_active.end()) it->second = Clock::now();
}

void IteratorPool::Destroy(IteratorServant* iterator) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_active.erase(iterator) == 0) return;  // somebody else was faster
    }
    Deactivate(iterator);
}

IteratorPool::LastUses::iterator IteratorPool::Idlest() {
    return std::min_element(m_active.begin(), m_active.end(),
                            [](const auto& a, const auto& b) { return a.second < b.second; });
}

void IteratorPool::Deactivate(IteratorServant* iterator) {
    try {
        const PortableServer::ObjectId_var id = m_poa->servant_to_id(iterator);
        m_poa->deactivate_object(id);
    } catch (const CORBA::Exception&) {
        // The ORB is shutting down and has done it.
    }
}

}  // namespace corba_bundle
