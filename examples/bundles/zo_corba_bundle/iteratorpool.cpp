#include "iteratorpool.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "idlalarm.h"

namespace corba_bundle {

namespace {

constexpr std::size_t kMaxIterators = 100;

// So many different lists may wait for clients: each of them is a copy of the whole table.
constexpr std::size_t kMaxLists = 8;

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
    const alarms::AlarmSnapshot* const kept = list.get();
    // The variable gives up its reference when this returns; the POA keeps one.
    const PortableServer::Servant_var<IteratorServant> servant(new IteratorServant(*this, std::move(list), next));
    const PortableServer::ObjectId_var id = m_poa->activate_object(servant);
    NbiAlarm::AlarmIterator_var reference = servant->_this();
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_active[servant] = {Clock::now(), kept};
    }
    while (IteratorServant* const tooMany = TakeOutTooMany(kept)) Deactivate(tooMany);
    if (t_reply != nullptr) t_reply->m_made = servant;
    return reference._retn();
}

// Null when there are none too many.
IteratorServant* IteratorPool::TakeOutTooMany(const alarms::AlarmSnapshot* newest) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_active.size() > kMaxIterators) return m_active.extract(Idlest()).key();
    const Holders others = HoldersOfOthers(newest);
    if (others.size() < kMaxLists) return nullptr;
    return m_active.extract(LeastShared(others)).key();
}

// The lock must be held, as for the next ones.
IteratorPool::Holders IteratorPool::HoldersOfOthers(const alarms::AlarmSnapshot* list) const {
    Holders holders;
    for (const auto& entry : m_active) ++holders[entry.second.list];
    holders.erase(list);
    return holders;
}

// Of those whose list is among these; the idlest where there are several.
IteratorPool::Uses::iterator IteratorPool::LeastShared(const Holders& lists) {
    const auto rank = [&lists](const Uses::value_type& entry) {
        const auto found = lists.find(entry.second.list);
        const std::size_t sharing = found != lists.end() ? found->second : std::numeric_limits<std::size_t>::max();
        return std::make_pair(sharing, entry.second.last);
    };
    return std::min_element(m_active.begin(), m_active.end(),
                            [&rank](const auto& a, const auto& b) { return rank(a) < rank(b); });
}

std::size_t IteratorPool::Reap() {
    std::vector<IteratorServant*> idle;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const auto limit = Clock::now() - m_longestIdle;
        for (auto it = Idlest(); it != m_active.end() && it->second.last < limit; it = Idlest()) {
            idle.push_back(m_active.extract(it).key());
        }
    }
    for (IteratorServant* const iterator : idle) Deactivate(iterator);
    return idle.size();
}

void IteratorPool::Touch(IteratorServant* iterator) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto it = m_active.find(iterator);
    if (it != m_active.end()) it->second.last = Clock::now();
}

void IteratorPool::Destroy(IteratorServant* iterator) {
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (m_active.erase(iterator) == 0) return;  // somebody else was faster
    }
    Deactivate(iterator);
}

IteratorPool::Uses::iterator IteratorPool::Idlest() {
    return std::min_element(m_active.begin(), m_active.end(),
                            [](const auto& a, const auto& b) { return a.second.last < b.second.last; });
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
