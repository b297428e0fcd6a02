// The iterators over long lists that clients hold.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>

#include <omniORB4/CORBA.h>

#include "alarm.hh"
#include "alarmtable.h"

namespace corba_bundle {

class IteratorServant;

/// Makes iterators and sees to their end: a client destroys its iterator or reads it to
/// its end, but may as well crash or forget it. So one that is left alone for too long
/// is reaped, and there is a limit to how many there are: beyond it the one that was
/// left alone the longest goes. Each keeps a whole list, so there is another limit to how
/// many lists they keep: beyond it those go whose list the fewest share.
///
/// Thread-safe. Must live until the ORB is shut down, which takes what is left.
class IteratorPool {
public:
    /// An iterator is of use only to who learns of it: one that is made by this thread
    /// while a `Reply` lives is destroyed with it, unless the reply was sent. It is not
    /// where the client's code set lacks a character, or where the client has gone.
    class Reply {
    public:
        explicit Reply(IteratorPool& pool);
        ~Reply();
        Reply(const Reply&) = delete;
        Reply& operator=(const Reply&) = delete;

        void Sent();

    private:
        friend class IteratorPool;
        IteratorPool& m_pool;
        PortableServer::Servant_var<IteratorServant> m_made;
    };

    IteratorPool(PortableServer::POA_ptr poa, std::chrono::seconds longestIdle);

    /// @param list   kept until the iterator is gone
    /// @param next   first alarm that the iterator gives
    /// @return the caller's to release
    NbiAlarm::AlarmIterator_ptr Make(std::shared_ptr<const alarms::AlarmSnapshot> list, std::size_t next);

    /// Destroys those that were left alone for too long; to be called now and then.
    /// @return how many
    std::size_t Reap();

    /// Notes that an iterator is in use.
    void Touch(IteratorServant* iterator);

    /// Destroys an iterator, unless that has been done.
    void Destroy(IteratorServant* iterator);

private:
    using Clock = std::chrono::steady_clock;
    struct Use {
        Clock::time_point last;
        const alarms::AlarmSnapshot* list = nullptr;  // which the iterator keeps
    };
    using Uses = std::map<IteratorServant*, Use>;
    using Holders = std::map<const alarms::AlarmSnapshot*, std::size_t>;  // how many iterators keep a list

    IteratorServant* TakeOutTooMany(const alarms::AlarmSnapshot* newest);
    Holders HoldersOfOthers(const alarms::AlarmSnapshot* list) const;
    Uses::iterator LeastShared(const Holders& lists);
    Uses::iterator Idlest();
    void Deactivate(IteratorServant* iterator);

    const PortableServer::POA_var m_poa;
    const std::chrono::seconds m_longestIdle;
    std::mutex m_mutex;
    Uses m_active;  // the POA owns them; who takes one out here has it deactivated
};

}  // namespace corba_bundle
