#include "src/event/eventqueue.h"

#include <algorithm>
#include <cerrno>
#include <new>
#include <thread>
#include <typeinfo>

#include <ace/Guard_T.h>

#include "src/event/lightinternalmessage.h"

namespace NS_BUNDLEMGR1 {

namespace {

// The one who waits may have been told to look; whoever wakes up has looked.
class Waiting {
public:
    Waiting(std::size_t& waiting, std::size_t& told) : m_waiting(waiting), m_told(told) { ++m_waiting; }
    ~Waiting() {
        --m_waiting;
        if (m_told > 0) --m_told;
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    std::size_t& m_waiting;
    std::size_t& m_told;
};

// Null without memory. ACE's queues do not survive a block that got no data block.
LightInternalMessage* BlockOf(const PostedEvent& event) {
    auto* const block = new (std::nothrow) LightInternalMessage(event);
    if (block == nullptr || block->data_block() != nullptr) return block;
    block->release();
    return nullptr;
}

void ReleaseChain(ACE_Message_Block* block) {
    while (block != nullptr) {
        ACE_Message_Block* const next = block->next();
        block->release();
        block = next;
    }
}

// Releases the block. False: it is no event, since a task's queue is public.
bool Unpack(ACE_Message_Block* block, PostedEvent& event) {
    if (block == nullptr) return false;
    const bool isEvent = typeid(*block) == typeid(LightInternalMessage);
    if (isEvent) event = static_cast<LightInternalMessage*>(block)->Posted();
    block->release();
    return isEvent;
}

// For a thread that shares the processor with this one.
void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__)
    asm volatile("yield");
#endif
}

bool IsOurs(const EventQueue::Base& queue) {
    return typeid(queue) == typeid(EventQueue);
}

}  // namespace

// A handler may give the task another queue, which deletes this one under a reader. The segment
// that the reader has is not freed then, if no event waits there any more.
EventQueue::~EventQueue() {
    Delete(m_first);
    Delete(m_spare);
}

void EventQueue::Delete(Segment* first) {
    while (first != nullptr) {
        const Segment* const segment = first;
        first = segment->next;
        if (segment != &m_own) delete segment;
    }
}

// ---- events in and out ---------------------------------------------------------------

void EventQueue::Post(Base& queue, const PostedEvent& event) {
    if (IsOurs(queue)) {
        static_cast<EventQueue&>(queue).Push(event);
        return;
    }
    LightInternalMessage* const block = BlockOf(event);
    if (block == nullptr) return;
    if (queue.enqueue_tail(block) == -1 && errno == ESHUTDOWN) block->release();
}

bool EventQueue::Take(Base& queue, Reader* reader, PostedEvent& event) {
    if (!IsOurs(queue)) {
        ACE_Message_Block* block = nullptr;
        queue.dequeue_head(block);
        return Unpack(block, event);
    }
    auto& ours = static_cast<EventQueue&>(queue);
    if (reader != nullptr) {
        if (reader->Claim(ours, event)) return true;
        ours.AwaitMore();
        if (reader->Claim(ours, event)) return true;
    }
    return ours.TakeWithLock(reader, event);
}

void EventQueue::Push(const PostedEvent& event) {
    bool mustTell = false;
    ACE_Notification_Strategy* notifier = nullptr;
    {
        ACE_Guard<ACE_Thread_Mutex> guard(lock_, false, 0);
        if (!Lock(guard) || !AwaitRoom()) return;
        while (!Append(event)) {
            if (!MakeSegment(guard) || !AwaitRoom()) return;
        }
        mustTell = MustTell();
        notifier = notification_strategy_;
    }
    // Without the lock, which the other thread needs first of all.
    if (mustTell) not_empty_cond_.signal();
    if (notifier != nullptr) notifier->notify();
}

// Whoever has the lock mostly has it for less than it costs to go to sleep.
bool EventQueue::Lock(ACE_Guard<ACE_Thread_Mutex>& guard) {
    constexpr int kTries = 8;  // some hundred nanoseconds
    const int error = errno;
    if (guard.tryacquire() != -1) return true;
    for (int i = 0; i < kTries && !guard.locked(); ++i) {
        Pause();
        guard.tryacquire();
    }
    errno = error;
    return guard.locked() || guard.acquire() != -1;
}

// Going to sleep and being woken costs more than most pauses between events, and costs the one
// who posts, too.
void EventQueue::AwaitMore() const {
    constexpr int kYields = 16;
    for (int i = 0; i < kYields && !m_hasBlocks.load(std::memory_order_relaxed); ++i) {
        if (m_next.load() != m_end.load(std::memory_order_relaxed)) return;
        std::this_thread::yield();
    }
}

// False: it takes another segment first.
bool EventQueue::Append(const PostedEvent& event) {
    const Position end = m_end.load(std::memory_order_relaxed);
    if (end % kSlots == 0) {
        Segment* const segment = TakeSpare();
        if (segment == nullptr) return false;
        segment->begin = end;
        (m_last != nullptr ? m_last->next : m_first) = segment;
        m_last = segment;
        m_nTold = 0;  // some C libraries lose a signal: now and then it is sent again
    }
    m_last->slots[end % kSlots] = event;
    m_end.store(end + 1, std::memory_order_release);  // with the slot, for readers
    return true;
}

// False: it is closed.
bool EventQueue::AwaitRoom() {
    if (state_ == DEACTIVATED) {
        errno = ESHUTDOWN;
        return false;
    }
    return !is_full_i() || wait_not_full_cond(nullptr) != -1;
}

// Without the lock: the program's new handler or operator new may post, too.
bool EventQueue::MakeSegment(ACE_Guard<ACE_Thread_Mutex>& guard) {
    guard.release();
    auto* const segment = new (std::nothrow) Segment;
    guard.acquire();
    if (segment == nullptr) return false;
    Recycle(segment);
    return true;
}

// Null where there is none.
EventQueue::Segment* EventQueue::TakeSpare() {
    Segment* const segment = m_spare;
    if (segment == nullptr) return nullptr;
    m_spare = segment->next;
    --m_nSpares;
    segment->next = nullptr;
    return segment;
}

bool EventQueue::TakeWithLock(Reader* reader, PostedEvent& event) {
    ACE_Message_Block* block = nullptr;
    {
        ACE_Guard<ACE_Thread_Mutex> guard(lock_, false, 0);
        if (!Lock(guard)) return false;
        if (state_ == DEACTIVATED) {
            errno = ESHUTDOWN;
            return false;
        }
        do {
            if (WaitForAny(nullptr) == -1) return false;
            m_hasBlocks.store(head_ != nullptr, std::memory_order_relaxed);
            if (head_ == nullptr && Claim(reader, event)) return true;
        } while (head_ == nullptr);
        Base::dequeue_head_i(block);
        m_hasBlocks.store(head_ != nullptr, std::memory_order_relaxed);
    }
    return Unpack(block, event);
}

// False: readers have been quicker.
bool EventQueue::Claim(Reader* reader, PostedEvent& event) {
    Position next = m_next.load();
    while (next < m_end) {
        DropBefore(next);
        event = m_first->slots[next % kSlots];
        if (!m_next.compare_exchange_weak(next, next + 1)) continue;
        if (reader != nullptr) Lend(*reader);
        return true;
    }
    return false;
}

// Whoever takes the event or drops it changes `m_next`, so that nobody else gets it. The segment
// is not used again while it is lent.
bool EventQueue::Reader::Claim(EventQueue& queue, PostedEvent& event) {
    if (m_queue != &queue) return false;
    Position next = queue.m_next.load();
    if (next >= m_limit && !MayClaim(next)) return false;
    event = m_segment->slots[next % kSlots];
    return queue.m_next.compare_exchange_strong(next, next + 1);
}

// No block may be older than what is claimed. Who puts one in first moves `m_next` to `m_end`, and
// sets `m_hasBlocks` before it lets go of the lock. So an event that can be claimed with the block
// there has been posted after that: who has seen such an event in `m_end` sees the flag, too.
// `m_next` never goes back, so that what the limit was before does no harm, and while it is held,
// it is beyond every limit.
bool EventQueue::Reader::MayClaim(Position next) {
    if (m_segment == nullptr) return false;
    const Position end = std::min(m_queue->m_end.load(std::memory_order_acquire), m_segment->begin + kSlots);
    if (next >= end || m_queue->m_hasBlocks.load(std::memory_order_relaxed)) return false;
    m_limit = end;
    return true;
}

// One of another kind may have got the place of the one before.
void EventQueue::Reader::Leave(const Base* queue) {
    if (m_queue == nullptr || m_queue != queue || !IsOurs(*queue)) return;
    ACE_GUARD(ACE_Thread_Mutex, guard, m_queue->lock_);
    m_queue->Return(*this);
}

// ---- for all that follow the lock must be held ----------------------------------------

void EventQueue::Lend(Reader& reader) {
    if (reader.m_queue != this) {
        reader.m_queue = this;
        reader.m_segment = nullptr;
    }
    DropBefore(m_next.load());
    if (reader.m_segment != m_first) {
        Return(reader);
        reader.m_segment = m_first;
        if (m_first != nullptr) ++m_first->readers;
    }
    reader.m_limit = m_first != nullptr ? std::min(m_end.load(), m_first->begin + kSlots) : 0;
}

void EventQueue::Return(Reader& reader) {
    Segment* const segment = reader.m_segment;
    reader.m_segment = nullptr;
    reader.m_limit = 0;
    if (segment != nullptr && --segment->readers == 0 && !segment->isInQueue) Recycle(segment);
}

void EventQueue::DropBefore(Position position) {
    while (m_first != nullptr && m_first->begin + kSlots <= position) {
        Segment* const segment = m_first;
        m_first = segment->next;
        if (m_first == nullptr) m_last = nullptr;
        segment->isInQueue = false;
        if (segment->readers == 0) Recycle(segment);
    }
}

void EventQueue::Recycle(Segment* segment) {
    if (m_nSpares >= kSpares && segment != &m_own) {
        delete segment;
        return;
    }
    segment->isInQueue = true;
    segment->next = m_spare;
    m_spare = segment;
    ++m_nSpares;
}

EventQueue::Position EventQueue::Next() const {
    return m_next.load() & ~kHeld;
}

// From now on no reader claims an event. Returns the oldest one.
EventQueue::Position EventQueue::Hold() {
    return m_next.fetch_or(kHeld) & ~kHeld;
}

// What a deactivated queue has stays there.
void EventQueue::LetGo(Position next) {
    m_next.store(state_ == DEACTIVATED ? next | kHeld : next);
}

// Drops the events.
void EventQueue::Clear() {
    Hold();
    LetGo(m_end);
    DropBefore(m_end);
}

bool EventQueue::MustTell() {
    if (m_nTold >= m_nWaiting) return false;
    ++m_nTold;
    return true;
}

int EventQueue::WaitForAny(ACE_Time_Value* timeout) {
    while (is_empty_i()) {
        const Waiting waiting(m_nWaiting, m_nTold);
        if (not_empty_cond_.wait(timeout) == -1) {
            if (errno == ETIME) errno = EWOULDBLOCK;
            return -1;
        }
        if (state_ != ACTIVATED) {
            errno = ESHUTDOWN;
            return -1;
        }
    }
    return 0;
}

// ---- blocks --------------------------------------------------------------------------

// Gives all events their blocks, behind those that are there. False: there was no memory, and
// nothing has changed.
bool EventQueue::Unfold() {
    const Position next = Hold();
    ACE_Message_Block* blocks = nullptr;
    if (next < m_end) {
        DropBefore(next);
        blocks = BlocksFrom(next);
        if (blocks == nullptr) {
            LetGo(next);
            errno = ENOMEM;
            return false;
        }
    }
    Clear();
    if (blocks != nullptr) Base::enqueue_tail_i(blocks);
    // Also for a block that is about to be put in.
    m_hasBlocks.store(true, std::memory_order_relaxed);
    return true;
}

ACE_Message_Block* EventQueue::BlocksFrom(Position first) {
    ACE_Message_Block* head = nullptr;
    ACE_Message_Block* tail = nullptr;
    const Segment* segment = m_first;
    for (Position i = first; i < m_end; ++i) {
        if (i == segment->begin + kSlots) segment = segment->next;
        ACE_Message_Block* const block = BlockOf(segment->slots[i % kSlots]);
        if (block == nullptr) {
            ReleaseChain(head);
            return nullptr;
        }
        if (tail != nullptr) tail->next(block);
        if (head == nullptr) head = block;
        tail = block;
    }
    return head;
}

int EventQueue::enqueue_i(ACE_Message_Block* block) {
    return Unfold() ? Base::enqueue_i(block) : -1;
}

int EventQueue::enqueue_deadline_i(ACE_Message_Block* block) {
    return Unfold() ? Base::enqueue_deadline_i(block) : -1;
}

int EventQueue::enqueue_tail_i(ACE_Message_Block* block) {
    return Unfold() ? Base::enqueue_tail_i(block) : -1;
}

int EventQueue::enqueue_head_i(ACE_Message_Block* block) {
    return Unfold() ? Base::enqueue_head_i(block) : -1;
}

// Whoever has waited here takes a block, or looks at one.
int EventQueue::wait_not_empty_cond(ACE_Time_Value* timeout) {
    do {
        if (WaitForAny(timeout) == -1) return -1;
        if (!Unfold()) {
            signal_dequeue_waiters();  // another one may have the memory
            errno = ENOMEM;
            return -1;
        }
    } while (head_ == nullptr);
    return 0;
}

int EventQueue::signal_dequeue_waiters() {
    return MustTell() ? Base::signal_dequeue_waiters() : 0;
}

// All of them, since events go out without a signal that would reach the next one.
int EventQueue::signal_enqueue_waiters() {
    return not_full_cond_.broadcast();
}

// ---- the queue as a whole ------------------------------------------------------------

// Without the lock, as ACE's: the caller may hold it.
int EventQueue::open(std::size_t highWaterMark, std::size_t lowWaterMark, ACE_Notification_Strategy* notifier) {
    const int result = Base::open(highWaterMark, lowWaterMark, notifier);
    Clear();
    return result;
}

std::size_t EventQueue::message_count() {
    ACE_GUARD_RETURN(ACE_Thread_Mutex, guard, lock_, 0);
    return cur_count_ + (m_end - Next());
}

bool EventQueue::is_empty_i() {
    return head_ == nullptr && Next() == m_end;
}

int EventQueue::flush_i() {
    const auto events = static_cast<int>(m_end - Hold());
    Clear();
    const int blocks = Base::flush_i();
    signal_enqueue_waiters();
    return blocks + events;
}

void EventQueue::high_water_mark(std::size_t bytes) {
    Base::high_water_mark(bytes);
    signal_enqueue_waiters();
}

void EventQueue::low_water_mark(std::size_t bytes) {
    Base::low_water_mark(bytes);
    signal_enqueue_waiters();
}

void EventQueue::message_bytes(std::size_t bytes) {
    Base::message_bytes(bytes);
    signal_enqueue_waiters();
}

int EventQueue::deactivate_i(int pulse) {
    const int before = Base::deactivate_i(pulse);
    LetGo(Hold());
    return before;
}

int EventQueue::activate_i() {
    const int before = Base::activate_i();
    LetGo(Hold());
    return before;
}

}  // namespace NS_BUNDLEMGR1
