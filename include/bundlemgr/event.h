/// @file event.h
/// In-process events: any thread posts, one worker thread calls the handlers.
///
///     class Lamp : public LightEventHandler {
///         void HandleLightEvent(int eventId, LightEventParam* param) override;
///     };
///     LightEventMgr::Instance()->RegisterHandler(kAlarmRaised, &lamp);
///     LightEventMgr::Instance()->Push_Msg(kAlarmRaised, new AlarmParam(alarm), 0);
///     LightEventMgr::RemoveHandler(&lamp);  // before it dies
#pragma once

#include <atomic>
#include <list>
#include <map>

#include <ace/Event_Handler.h>
#include <ace/Task.h>

#include <bundlemgr/detail/mutex.h>
#include <bundlemgr/export.h>

namespace NS_BUNDLEMGR1 {

/// Event that the library posts, without a parameter, whenever a service has been
/// removed from its bundle.
constexpr int LIGHT_EVENT_SERVICE_REMOVED = 2;

/// Base of the object that travels with an event.
///
/// The code of a derived class must stay mapped until the event is over: put it into a library
/// that outlives its posters, not into that of a service which may be removed while its events
/// wait.
class ZO_EXPORT LightEventParam {
public:
    LightEventParam() : m_bAutoDelete(false) {}
    /// @param autoDelete initial value of `m_bAutoDelete`
    explicit LightEventParam(bool autoDelete) : m_bAutoDelete(autoDelete) {}
    LightEventParam(const LightEventParam&) = default;
    LightEventParam& operator=(const LightEventParam&) = default;
    virtual ~LightEventParam();

    /// Read when the event is posted. True: the event manager deletes the parameter
    /// after the last handler. False: it stays the poster's, who keeps it alive
    /// until every handler has run.
    bool m_bAutoDelete;
};

/// Receives events. The event manager keeps only the pointer: take a handler away with
/// `LightEventMgr::RemoveHandler` before it dies, and before its library is unloaded.
///
/// `UnRegisterHandler` alone is not enough. It does not wait for an event that is under way,
/// which may still reach the handler.
///
/// `EventSubscription` (kit.h) does all that in its destructor.
class ZO_EXPORT LightEventHandler : public ACE_Event_Handler {
public:
    ~LightEventHandler() override;

    /// Called on the worker thread, one event at a time. All handlers share that thread, so
    /// long work belongs on another. An exception that leaves it ends the handling of that event.
    ///
    /// The end of a service waits for its handler, while the bundle is held: such a handler must
    /// not load or remove services, nor look up a bundle, nor an interface for the first time.
    /// @param eventId identifier under which the event was posted
    /// @param param   parameter given by the poster, may be null; see
    ///                `LightEventParam::m_bAutoDelete` for who owns it
    virtual void HandleLightEvent(int eventId, LightEventParam* param) = 0;
};

/// Dispatches events by integer identifier on one worker thread.
///
/// The host starts it with `Init`, before the bundles are initialised, and ends it with `Fini`
/// and `Destroy`, after the bundles were finalised and waited for and before
/// `BundleMgr::Destroy` unmaps the code of their handlers. It is not meant to be started again.
/// Posting never waits for a handler.
///
/// Thread safety: everything may be called from any thread, handlers included, also while
/// another thread destroys the event manager.
///
/// A pointer from `Instance` may be out of date when it is used. The operations below that
/// are not virtual (`Init` to `process_msg`) notice that and do nothing: `Push_Msg` does not
/// take the event nor free its parameter, `find` finds nothing, `Init` returns 0. What is
/// inherited from ACE (`activate`, `msg_queue`, ...) does not notice; nor does anything of a
/// derived class's object that is gone. Rather than to keep the pointer, ask `Instance`.
///
/// To those who use the task's queue (`msg_queue`, `putq`, `getq`, ...) an event is a message block
/// like theirs. Only ACE's queue iterators do not see those events that nobody has looked for yet.
/// Whoever looks for one, or puts a block there, has the events that wait made into blocks first:
/// a million of them keep the queue locked for about half a second. Without memory for that the
/// call returns -1 (ENOMEM) and the events stay.
///
/// A new handler (`std::set_new_handler`) or an operator new of the program's own must not use the
/// event manager: its queue or its table of handlers may be locked when memory is asked for.
///
/// A child of `fork` has no worker. Handlers stay registered there, events that waited at
/// the fork are the parent's. The child may post, destroy the event manager, and start a
/// worker of its own with `Init`.
class ZO_EXPORT LightEventMgr : public ACE_Task<ACE_MT_SYNCH> {
public:
    /// @return the one event manager, created (not started) on the first call and on the
    ///         first one after `Destroy` has begun. A handler of the one that is being
    ///         destroyed gets that one, unless there is a new one already
    static LightEventMgr* Instance();

    /// Ends the event manager: new calls are refused, running ones finish, its workers end, its
    /// handlers are forgotten. Returns when all that is done, also when another thread does it.
    /// Called from a handler it only stops the worker, which cannot wait for itself. A handler
    /// that a thread calls through `process_msg` is not waited for.
    ///
    /// The caller must hold no lock that a handler may wait for.
    static void Destroy();

    /// Starts the worker thread.
    /// @return 1 when it runs, also when it did before, 0 (and a log record) when it could not be started
    int Init();

    /// Stops the worker as `ExitThreads` does and forgets all handlers.
    void Fini();

    /// Appends `handler` to those of `eventId`. Registered twice, it is called twice.
    /// @param eventId identifier of the events
    /// @param handler stays its owner's; null is allowed and never called
    /// @return 0
    int RegisterHandler(const int& eventId, LightEventHandler* handler);

    /// Takes out the first registration of `handler` for `eventId`, if there is one. An event
    /// that is under way may still call it: see `RemoveHandler`.
    /// @param eventId identifier of the events
    /// @param handler the one that was registered
    /// @return 0
    int UnRegisterHandler(const int& eventId, LightEventHandler* handler);

    /// Takes `handler` away for good, after which it may be deleted:
    ///
    ///     LightEventMgr::RemoveHandler(lamp);  // unregisters it and waits for who is in it
    ///     delete lamp;
    ///
    /// It is unregistered from all events, and none that is under way calls it any more.
    /// Returns when no other thread is in it, be that a worker or one that is in
    /// `process_msg`; the end of an event's parameter is part of the event's last call.
    ///
    /// Works while the event manager is destroyed, afterwards, and when there is none; does not
    /// create one. The caller must prevent others from registering the handler
    /// again. From an event manager that you made yourself, unregister the handler first.
    ///
    /// The caller must hold no lock that the handler may wait for. In a service's `fini`
    /// these are the locks of the bundle manager and of the bundle: a handler must not load or
    /// remove a service, nor look up a bundle, nor an interface for the first time.
    ///
    /// From a handler it may be called, too. One that removes itself has its own call still
    /// under way, so it may be deleted as the last thing that it does itself, or by another
    /// thread that calls this. Where several workers are in one handler and each removes it, none
    /// waits for the others: it must not be deleted before all have left it. Two handlers that
    /// remove each other at the same time, on two workers, wait for ever.
    ///
    /// In a forked child nobody else is in a handler, and nothing is waited for.
    /// @param handler what was registered, as often as it was; null is taken away as well
    static void RemoveHandler(const LightEventHandler* handler);

    /// @param eventId identifier of the events
    /// @return a copy of the handlers of `eventId` in registration order
    std::list<LightEventHandler*> find(const int& eventId);

    /// Posts an event; events are dispatched in posting order. After `Fini` the
    /// event is not taken, and its parameter not freed.
    /// @param eventId identifier
    /// @param param   parameter or null; see `LightEventParam::m_bAutoDelete`
    /// @param extra   a number carried along; the dispatch does not use it
    /// @return 0
    int Push_Msg(const int& eventId, LightEventParam* param, int extra);

    /// Ends the worker, and others that were started by `activate`, and returns when they
    /// have ended; called by a worker itself, it returns at once and the worker ends after
    /// the current event. Events still queued are dropped, their parameters not deleted.
    void ExitThreads();

    /// Waits for one event and dispatches it; returns at once when the queue is closed.
    void process_msg();

    /// Does nothing; ACE's, for tasks that begin their work in it. @return 0
    int open(void* args = nullptr) override;
    /// ACE's last call on a worker. A class that overrides it calls this one, too. @return 0
    int close(u_long flags = 0) override;
    /// A worker's body. @return 0
    int svc() override;

    LightEventMgr(const LightEventMgr&) = delete;
    LightEventMgr& operator=(const LightEventMgr&) = delete;

    /// Stops the worker first, if it still runs. A derived class whose members the worker
    /// uses calls `ExitThreads` in its own destructor.
    ~LightEventMgr() override;

protected:
    LightEventMgr();

    static std::atomic<LightEventMgr*> m_pInstance;

private:
    class Stay;
    class Reading;
    struct Event;

    static LightEventMgr* Make();
    void Shelve();
    void TakeOffShelf();
    void MakeQueue();
    void CloseQueue();
    bool Stop(bool isInside);
    void JoinWorkers() ZO_EXCLUDES(m_waitMutex);
    bool HasThreads() const;
    void EndUse();
    bool IsSingleton() const;
    void Fetch(Event& event);
    static void Dispatch(Event& event);
    void Forget(const LightEventHandler* handler) ZO_EXCLUDES(m_handlerLock);
    void ForgetHandlers() ZO_EXCLUDES(m_handlerLock);

    static void BeforeFork();
    static void AfterForkInParent();
    static void AfterForkInChild();
    static const int s_nForkHandlers;
    void StartAnewInChild();

    detail::RWMutex m_handlerLock;
    std::map<int, std::list<LightEventHandler*>> m_mapHandlers ZO_GUARDED_BY(m_handlerLock);
    std::atomic<bool> m_bExit;
    detail::ThreadMutex m_waitMutex;                         ///< One thread at a time joins the workers.
    std::atomic<unsigned long> m_nStarts{0};                 ///< Workers that ever began.
    unsigned long m_nJoined ZO_GUARDED_BY(m_waitMutex) = 0;  ///< How many of them have been waited for.
    std::atomic<long> m_nDetached{0};                        ///< Workers that nobody can join.
    std::atomic<long> m_nStaying{0};                         ///< Threads that are inside for long.
    std::atomic<bool> m_bUnpublished{false};                 ///< `Destroy` has begun.
    bool m_bFromShelf = false;                               ///< Made by `Instance`.
    LightEventMgr* m_pNextOnShelf = nullptr;
};

}  // namespace NS_BUNDLEMGR1
