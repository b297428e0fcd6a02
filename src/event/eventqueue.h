// Where events wait for the worker: ACE's queue, with a short way for events.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include <ace/Message_Queue.h>
#include <ace/Task.h>

#include "src/event/postedevent.h"

namespace NS_BUNDLEMGR1 {

/// The queue of an event manager. To all who know it as the task's queue it is ACE's: blocks of
/// theirs and events come out in the order in which both went in, and who takes an event out gets
/// it as a block, a `LightInternalMessage`.
///
/// Events wait without a block, in segments behind the blocks. As soon as somebody else wants to
/// see one, or to put a block behind or before them, all of them get their blocks. Only ACE's
/// iterators, which cannot be told, do not see events that have none.
///
/// Thread safety: as ACE's queue. Everything but a reader's claim of an event happens under its lock.
class EventQueue final : public ACE_Message_Queue<ACE_MT_SYNCH> {
public:
    using Base = ACE_Message_Queue<ACE_MT_SYNCH>;

    /// Takes events out without the lock while no block waits, and has the lock once a segment.
    /// Others may take events meanwhile, in whatever way: whoever is next gets the oldest one.
    ///
    /// Thread safety: for one thread.
    class Reader;

    EventQueue() = default;
    /// Releases what still waits; parameters are left alone.
    ~EventQueue() override;
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    /// Puts an event behind everything else in `queue`, be it of this class or not. An event that
    /// is refused, or for which there is no memory, is lost; its parameter is left alone.
    static void Post(Base& queue, const PostedEvent& event);

    /// Waits for what is next in `queue`, be it of this class or not.
    /// @param reader null: without one
    /// @param event  set when the result is true
    /// @return false when the queue is closed, or when that was no event; it has been released
    static bool Take(Base& queue, Reader* reader, PostedEvent& event);

    /// @name The task's queue
    /// As ACE describes them. What needs blocks for the events answers -1 (ENOMEM) when there is no
    /// memory for them.
    /// @{
    int open(std::size_t highWaterMark, std::size_t lowWaterMark, ACE_Notification_Strategy* notifier) override;
    using Base::high_water_mark;
    using Base::low_water_mark;
    using Base::message_bytes;
    std::size_t message_count() override;
    int flush_i() override;
    void high_water_mark(std::size_t bytes) override;
    void low_water_mark(std::size_t bytes) override;
    void message_bytes(std::size_t bytes) override;
    /// @}

protected:
    int enqueue_i(ACE_Message_Block* block) override;
    int enqueue_deadline_i(ACE_Message_Block* block) override;
    int enqueue_tail_i(ACE_Message_Block* block) override;
    int enqueue_head_i(ACE_Message_Block* block) override;
    bool is_empty_i() override;
    int deactivate_i(int pulse) override;
    int activate_i() override;
    int wait_not_empty_cond(ACE_Time_Value* timeout) override;
    int signal_dequeue_waiters() override;
    int signal_enqueue_waiters() override;

private:
    using Position = std::uint64_t;  // counts the events that ever waited

    static constexpr std::size_t kSlots = 128;
    // Enough for a thousand events on their way without asking for memory, 25 KB.
    static constexpr std::size_t kSpares = 8;
    static constexpr std::size_t kCacheLine = 64;
    // In `m_next`: nobody may claim an event without the lock.
    static constexpr Position kHeld = Position{1} << 63;

    // A slot is set when an event waits there.
    struct Segment {         // NOLINT(cppcoreguidelines-pro-type-member-init)
        Position begin = 0;  // of its first slot
        Segment* next = nullptr;
        std::size_t readers = 0;
        bool isInQueue = true;
        PostedEvent slots[kSlots];
    };

    void Push(const PostedEvent& event);
    static bool Lock(ACE_Guard<ACE_Thread_Mutex>& guard);
    bool AwaitRoom();
    bool MakeSegment(ACE_Guard<ACE_Thread_Mutex>& guard);
    bool Append(const PostedEvent& event);
    Segment* TakeSpare();
    void Delete(Segment* first);
    void AwaitMore() const;
    bool Claim(Reader* reader, PostedEvent& event);
    bool TakeWithLock(Reader* reader, PostedEvent& event);
    int WaitForAny(ACE_Time_Value* timeout);
    bool MustTell();
    bool Unfold();
    ACE_Message_Block* BlocksFrom(Position first);
    Position Hold();
    void LetGo(Position next);
    Position Next() const;
    void DropBefore(Position position);
    void Clear();
    void Recycle(Segment* segment);
    void Lend(Reader& reader);
    void Return(Reader& reader);

    std::atomic<Position> m_next{0};  ///< The oldest event that waits, if it is before `m_end`.
    // So that posting and taking do not change the same cache line.
    [[maybe_unused]] char m_distance[kCacheLine] = {};
    std::atomic<Position> m_end{0};  ///< Behind the youngest one; changed with the lock.
    /// There may be blocks; exact whenever an event or a block has been taken with the lock.
    std::atomic<bool> m_hasBlocks{false};
    Segment* m_first = nullptr;  ///< Has the oldest event.
    Segment* m_last = nullptr;   ///< Has the youngest one.
    Segment m_own;               ///< The first events need no memory, in a child of fork either.
    Segment* m_spare = &m_own;   ///< For the events to come.
    std::size_t m_nSpares = 1;
    std::size_t m_nWaiting = 0;  ///< Threads that wait for something to take.
    std::size_t m_nTold = 0;     ///< How many of them have been told to look.
};

class EventQueue::Reader {
public:
    Reader() = default;
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

    /// To be called in the end.
    /// @param queue the task's. Another one, which the reader may have used before, is not touched:
    ///              it may be gone
    void Leave(const Base* queue);

private:
    friend class EventQueue;

    bool Claim(EventQueue& queue, PostedEvent& event);
    bool MayClaim(Position next);

    EventQueue* m_queue = nullptr;
    Segment* m_segment = nullptr;
    Position m_limit = 0;  // of what it may claim in this segment
};

}  // namespace NS_BUNDLEMGR1
