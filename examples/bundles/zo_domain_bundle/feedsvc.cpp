// FeedSvc: follows the feed file that the network elements' mediation writes and applies
// it to the alarm table.
#include <atomic>
#include <chrono>
#include <memory>

#include <bundlemgr/kit.h>

#include "alarmtable.h"
#include "feed.h"
#include "feedfollower.h"
#include "feedline.h"
#include "settings.h"

namespace {

using alarms::Alarm;
using alarms::AlarmTable;
using alarms::FeedFollower;
using alarms::FeedLine;
using NS_BUNDLEMGR1::CorbaConfigItems;
using NS_BUNDLEMGR1::NameValueStru;
using NS_BUNDLEMGR1::ServiceInterfaceProxy;

constexpr char kDefaultFile[] = "var/alarms.feed";
constexpr int kDefaultPollMilliseconds = 100;
constexpr int kMaxPollMilliseconds = 60000;

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

class FeedSvc : public zo::Service, public FeedFollower::Reader {
public:
    FeedSvc() : Service("zo_domain_bundle", alarms::FEED_SERVICE) {}

    int init(int, ACE_TCHAR*[]) override {
        // Looked up here and not on the thread: the first look-up takes locks that are
        // held while a service is being ended. Later ones take none.
        try {
            m_alarms.GetInterface();
        } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
            ZO_ERROR(m_log, "%s is not there; is zo_base_bundle in bundlemgr.cfg?\n", alarms::ALARM_SERVICE);
            return -1;
        }
        m_pause = std::chrono::milliseconds(
            alarms::IntSetting("FeedPollMilliseconds", kDefaultPollMilliseconds, 1, kMaxPollMilliseconds, m_log));
        std::string file = kDefaultFile;
        CorbaConfigItems::Instance()->GetStrItemInfo("FeedFile", file);
        m_feed = Publish(std::make_unique<FeedImpl>(alarms::PathInRoot(file)));
        m_follower = std::make_unique<FeedFollower>(m_feed->File(), *this);
        m_thread.Start([this] {
            m_follower->Poll();
            return m_pause;
        });
        return 0;
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

    void Notice(const std::string& text) override { ZO_INFO(m_log, "%s %s\n", m_feed->File().c_str(), text.c_str()); }

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
        ZO_ERROR(m_log, "%s:%lu: %s; line skipped\n", m_feed->File().c_str(), number, reason.c_str());
    }

    zo::Log m_log{alarms::FEED_SERVICE, "zo_domain_bundle", alarms::FEED_SERVICE};
    ServiceInterfaceProxy<AlarmTable> m_alarms{alarms::ALARM_SERVICE};
    FeedImpl* m_feed = nullptr;  // the published interface
    std::unique_ptr<FeedFollower> m_follower;
    std::chrono::milliseconds m_pause{};
    zo::ServiceThread m_thread{m_log};
};

}  // namespace

ZO_SERVICE_FACTORY(FeedSvc, FeedSvc);
