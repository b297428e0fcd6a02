#include <algorithm>
#include <exception>
#include <thread>
#include <utility>

#include <bundlemgr/detail/mutex.h>
#include <bundlemgr/kit.h>

#include "src/kit/kitlock.h"

namespace NS_BUNDLEMGR1 {

namespace {

constexpr std::chrono::seconds kPauseAfterException(1);
constexpr std::chrono::hours kMaxPause(24 * 365);  // a clock's range is not without end

}  // namespace

/// One life of the thread, from a start to its end. Belongs to the thread as well, so that the
/// function may destroy its `ServiceThread`.
class __attribute__((visibility("hidden"))) ServiceThread::Run : public std::enable_shared_from_this<Run> {
public:
    Run(const Log& log, Round round) : m_log(log), m_round(std::move(round)), m_forks(KitLock::Forks()) {}

    // The last one is the thread itself when it has destroyed its `ServiceThread`.
    ~Run() {
        if (m_thread.joinable()) m_thread.detach();
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    /// Takes the place of the latest one, which it lets end before its own first round.
    void Succeed(std::shared_ptr<Run>& latest) {
        const std::shared_ptr<Run> self = shared_from_this();
        const KitLock lock;
        m_former = latest;
        latest = self;
    }

    /// Gives the place back.
    void Withdraw(std::shared_ptr<Run>& latest) {
        const std::shared_ptr<Run> self = shared_from_this();
        const KitLock lock;
        if (latest == self) latest = m_former;
    }

    std::shared_ptr<Run> Former() const {
        const KitLock lock;
        return m_former;
    }

    void Begin() {
        const detail::Guard onlyOne(m_joinMutex);
        m_thread = std::thread([self = shared_from_this()] { self->Work(); });
    }

    void AskToEnd() {
        {
            const detail::Guard guard(m_mutex);
            m_isAskedToEnd = true;
        }
        m_wake.TellAll();
    }

    /// Returns when the thread has ended.
    void Join() {
        const detail::Guard onlyOne(m_joinMutex);
        if (m_thread.joinable()) m_thread.join();
    }

    void Wake() {
        {
            const detail::Guard guard(m_mutex);
            m_isWoken = true;
        }
        m_wake.TellAll();
    }

    bool IsAskedToEnd() {
        const detail::Guard guard(m_mutex);
        return m_isAskedToEnd;
    }

    /// False in a child that was forked since: the thread is not there, nor is whoever holds its
    /// locks.
    bool IsOfThisProcess() const { return m_forks == KitLock::Forks(); }

    /// Never destroyed from now on. The caller has the `KitLock`.
    void Abandon() { m_self = shared_from_this(); }

    /// @return the calling thread's, or null
    static Run* Current() { return t_current; }

private:
    void Work() {
        t_current = this;
        EndFormer();
        while (IsOfThisProcess() && !IsAskedToEnd()) Pause(OneRound());
        // Its code may be gone when this object goes.
        m_round = nullptr;
    }

    void EndFormer() {
        // All of them: the nearest may not have got a thread.
        for (std::shared_ptr<Run> former = Former(); former != nullptr; former = former->Former()) {
            former->AskToEnd();
            former->Join();
        }
        const KitLock lock;
        m_former.reset();
    }

    std::chrono::milliseconds OneRound() {
        try {
            return m_round();
        } catch (const std::exception& exception) {
            ZO_ERROR(m_log, "the service's thread failed and tries again: %s\n", exception.what());
        } catch (...) {
            if (std::current_exception() == nullptr) throw;  // the thread is being cancelled
            ZO_ERROR(m_log, "the service's thread failed and tries again: not a standard exception\n");
        }
        return kPauseAfterException;
    }

    void Pause(std::chrono::milliseconds pause) {
        const auto end = std::chrono::steady_clock::now() + std::min<std::chrono::milliseconds>(pause, kMaxPause);
        const detail::Guard guard(m_mutex);
        while (!m_isAskedToEnd && !m_isWoken && std::chrono::steady_clock::now() < end) m_wake.WaitUntil(m_mutex, end);
        m_isWoken = false;
    }

    static thread_local Run* t_current;

    const Log m_log;
    Round m_round;
    const unsigned long m_forks;
    std::shared_ptr<Run> m_former;
    std::shared_ptr<Run> m_self;
    detail::Mutex m_mutex;
    detail::Condition m_wake;
    bool m_isAskedToEnd ZO_GUARDED_BY(m_mutex) = false;
    bool m_isWoken ZO_GUARDED_BY(m_mutex) = false;
    detail::Mutex m_joinMutex;
    std::thread m_thread;  // joined under it, by one thread at a time
};

thread_local ServiceThread::Run* ServiceThread::Run::t_current = nullptr;

ServiceThread::ServiceThread(const Log& log) : m_log(log) {}

ServiceThread::~ServiceThread() {
    Stop();
}

void ServiceThread::Start(Round round) {
    const auto run = std::make_shared<Run>(m_log, std::move(round));
    ForgetForeign();
    run->Succeed(m_run);
    try {
        run->Begin();
    } catch (...) {
        run->Withdraw(m_run);
        throw;
    }
}

void ServiceThread::Stop() {
    ForgetForeign();
    const std::shared_ptr<Run> latest = Latest();
    bool isInside = false;
    for (std::shared_ptr<Run> run = latest; run != nullptr; run = run->Former()) {
        run->AskToEnd();
        if (run.get() == Run::Current()) isInside = true;
    }
    if (isInside) return;
    for (std::shared_ptr<Run> run = latest; run != nullptr; run = run->Former()) run->Join();
}

void ServiceThread::Wake() {
    const std::shared_ptr<Run> run = Latest();
    if (run != nullptr && run->IsOfThisProcess()) run->Wake();
}

bool ServiceThread::Stopping() const {
    const std::shared_ptr<Run> latest = Latest();
    if (latest == nullptr) return false;
    if (!latest->IsOfThisProcess()) return true;
    for (std::shared_ptr<Run> run = latest; run != nullptr; run = run->Former()) {
        if (run.get() == Run::Current()) return run->IsAskedToEnd();
    }
    return latest->IsAskedToEnd();
}

// In a forked child: the thread of the parent is not there.
void ServiceThread::ForgetForeign() {
    const std::shared_ptr<Run> latest = Latest();
    if (latest == nullptr || latest->IsOfThisProcess()) return;
    const KitLock lock;
    if (m_run != latest) return;
    latest->Abandon();
    m_run.reset();
}

std::shared_ptr<ServiceThread::Run> ServiceThread::Latest() const {
    const KitLock lock;
    return m_run;
}

}  // namespace NS_BUNDLEMGR1
