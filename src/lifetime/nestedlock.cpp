#include "src/lifetime/nestedlock.h"

namespace NS_BUNDLEMGR1 {

namespace {

// The one that the calling thread took last and still holds.
thread_local const NestedGuard* t_innermost = nullptr;

}  // namespace

NestedGuard::NestedGuard(ACE_Recursive_Thread_Mutex& lock, LockRank rank)
    : m_lock(lock), m_rank(rank), m_pOuter(t_innermost) {
    if (m_lock.tryacquire() == 0) {
        t_innermost = this;
        return;
    }
    HeldLocks held;
    held.release();
    held.m_pReleased = this;  // takes this one as well, in its place
    held.acquire();
}

NestedGuard::~NestedGuard() {
    t_innermost = m_pOuter;
    m_lock.release();
}

bool NestedGuard::Holds(LockRank rank) {
    for (const NestedGuard* guard = t_innermost; guard != nullptr; guard = guard->m_pOuter) {
        if (guard->m_rank == rank) return true;
    }
    return false;
}

void HeldLocks::release() {
    m_pReleased = t_innermost;
    t_innermost = nullptr;  // what is taken meanwhile stands by itself
    for (const NestedGuard* guard = m_pReleased; guard != nullptr; guard = guard->m_pOuter) guard->m_lock.release();
}

// Waits for one of them at a time, without holding any other.
void HeldLocks::acquire() {
    for (const NestedGuard* awaited = m_pReleased; awaited != nullptr;) {
        awaited->m_lock.acquire();
        const NestedGuard* const busy = TryAllBut(awaited);
        if (busy == nullptr) break;
        awaited->m_lock.release();
        awaited = busy;
    }
    Restore();
}

int HeldLocks::tryacquire() {
    if (TryAllBut(nullptr) != nullptr) return -1;
    Restore();
    return 0;
}

void HeldLocks::Restore() {
    t_innermost = m_pReleased;
    m_pReleased = nullptr;
}

// Takes all others, or none. @return the one that another thread has, or null
const NestedGuard* HeldLocks::TryAllBut(const NestedGuard* taken) const {
    for (const NestedGuard* guard = m_pReleased; guard != nullptr; guard = guard->m_pOuter) {
        if (guard == taken || guard->m_lock.tryacquire() == 0) continue;
        for (const NestedGuard* tried = m_pReleased; tried != guard; tried = tried->m_pOuter) {
            if (tried != taken) tried->m_lock.release();
        }
        return guard;
    }
    return nullptr;
}

}  // namespace NS_BUNDLEMGR1
