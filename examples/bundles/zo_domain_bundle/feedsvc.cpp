// FeedSvc: follows the feed file that the network elements' mediation writes and applies
// it to the alarm table.
#include <atomic>
#include <chrono>
#include <memory>

#include "alarmtable.h"
#include "feed.h"
#include "feedfollower.h"
#include "feedline.h"
#include "servicelog.h"
#include "servicethread.h"
#include "settings.h"

namespace {

using alarms::Alarm;
using alarms::AlarmTable;
using alarms::FeedFollower;
using alarms::FeedLine;
using NS_BUNDLEMGR1::CorbaConfigItems;
using NS_BUNDLEMGR1::NameValueStru;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;
using NS_BUNDLEMGR1::ServiceObjectBase;

constexpr char kStandardFile[] = "var/alarms.feed";
constexpr int kStandardPollMilliseconds = 100;
constexpr int kMostPollMilliseconds = 60000;

class FeedImpl : public alarms::Feed {
public:
    explicit FeedImpl(std::string file) : m_file(std::move(file)) {}

    std::string GetDescription() override { return "feed of alarms"; }
    void* GetImplementation() override { return this; }
    std::string File() override { return m_file; }
    Counters Count() override { return {m_applied, m_rejected}; }

    void CountApplied() { ++m_applied; }
    void CountRejected() { ++m_rejected; }

private:
    const std::string m_file;
    std::atomic<std::uint64_t> m_applied{0};
    std::atomic<std::uint64_t> m_rejected{0};
};

class FeedSvc : public ServiceObjectBase, public FeedFollower::Reader {
public:
    FeedSvc() : ServiceObjectBase("zo_domain_bundle", alarms::FEED_SERVICE) {}
    ~FeedSvc() override { Stop(); }

    int init(int, ACE_TCHAR*[]) override {
        // Looked up here and not on the thread: the first look-up takes locks that are
        // held while a service is being ended. Later ones take none.
        try {
            m_alarms.GetInterface();
        } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
            m_log.Error(__LINE__, "%s is not there; is zo_base_bundle in bundlemgr.cfg?", alarms::ALARM_SERVICE);
            return -1;
        }
        m_pause = std::chrono::milliseconds(
            alarms::IntSetting("FeedPollMilliseconds", kStandardPollMilliseconds, 1, kMostPollMilliseconds, m_log));
        SetInterface();
        m_follower = std::make_unique<FeedFollower>(m_feed->File(), *this);
        m_thread.Start([this] {
            m_follower->Poll();
            return m_pause;
        });
        return 0;
    }

    int fini() override {
        Stop();
        return ServiceObjectBase::fini();
    }

    void SetInterface() override {
        std::string file = kStandardFile;
        CorbaConfigItems::Instance()->GetStrItemInfo("FeedFile", file);
        m_pInterface = m_feed = new FeedImpl(alarms::PathInRoot(file));
    }

    void ExitThreads() override { m_thread.Stop(); }

private:
    // The rest is called by the follower, on the service's thread.

    void Line(unsigned long number, const std::string& text) override {
        const std::string local = NS_BUNDLEMGR1::Trim(text);
        if (local.empty() || local.front() == '#') return;
        std::string reason;
        if (Apply(local, reason)) {
            m_feed->CountApplied();
        } else {
            Reject(number, reason);
        }
    }

    void TooLong(unsigned long number) override {
        Reject(number, "more than " + std::to_string(FeedFollower::kMaxLine) + " bytes");
    }

    void Notice(const std::string& text) override {
        m_log.Info(__LINE__, "%s %s", m_feed->File().c_str(), text.c_str());
    }

    bool Stopping() override { return m_thread.Stopping(); }

    bool Apply(const std::string& local, std::string& reason) {
        FeedLine line;
        if (!alarms::ParseFeedLine(local, line, reason)) return false;
        if (Apply(line)) return true;
        reason = "no alarm '" + line.id + "' is active";
        return false;
    }

    bool Apply(const FeedLine& line) {
        if (line.event == FeedLine::CHANGE) return m_alarms->Change(line.id, line.attributes);
        if (line.event == FeedLine::CLEAR) return m_alarms->Clear(line.id);
        Alarm alarm;
        alarm.id = line.id;
        for (const NameValueStru& attribute : line.attributes) {
            alarms::SetAttribute(alarm, attribute.name, attribute.value);
        }
        return m_alarms->Raise(alarm);
    }

    void Reject(unsigned long number, const std::string& reason) {
        m_feed->CountRejected();
        m_log.Error(__LINE__, "%s:%lu: %s; line skipped", m_feed->File().c_str(), number, reason.c_str());
    }

    // Also when the service is removed without ExitThreads: its code is unmapped next,
    // and no thread may be left in it.
    void Stop() {
        m_thread.Stop();
        m_follower.reset();
        if (m_pInterface == nullptr) return;
        NS_BUNDLEMGR1::SetIFBuf(alarms::FEED_SERVICE, nullptr);
        RemoveInterface();
    }

    alarms::ServiceLog m_log{"zo_domain_bundle", alarms::FEED_SERVICE, "feedsvc"};
    ServiceInterfaceProxy<AlarmTable> m_alarms{alarms::ALARM_SERVICE};
    FeedImpl* m_feed = nullptr;  // the published interface
    std::unique_ptr<FeedFollower> m_follower;
    std::chrono::milliseconds m_pause{};
    alarms::ServiceThread m_thread{m_log};
};

}  // namespace

ZO_SERVICE_FACTORY(FeedSvc, FeedSvc);
