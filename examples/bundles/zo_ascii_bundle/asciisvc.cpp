// AsciiSvc: serves the alarms as lines of text over TCP.
#include <atomic>
#include <memory>

#include <sys/stat.h>

#include <bundlemgr/kit.h>

#include "alarmevent.h"
#include "asciiserver.h"
#include "portfile.h"
#include "settings.h"
#include "textclients.h"

namespace {

namespace TextClients = alarms::TextClients;
using alarms::AlarmEvent;
using alarms::AsciiServer;
using NS_BUNDLEMGR1::LightEventParam;

constexpr char kService[] = "AsciiSvc";
constexpr int kMaxPort = 65535;
constexpr int kDefaultBacklog = 1024 * 1024;
constexpr int kMinBacklog = 1024;
constexpr int kMaxBacklog = 256 * 1024 * 1024;

class AsciiSvc : public zo::Service {
public:
    AsciiSvc() : Service("zo_ascii_bundle", kService) {}
    ~AsciiSvc() override { Stop(); }

    int init(int, ACE_TCHAR*[]) override {
        m_server = std::make_unique<AsciiServer>(ReadSettings(), m_log);
        try {
            if (!m_server->Listen()) return -1;
        } catch (const NS_BUNDLEMGR1::InterfaceNotExistException&) {
            ZO_ERROR(m_log, "%s is not there; is zo_base_bundle in bundlemgr.cfg?\n", alarms::ALARM_SERVICE);
            return -1;
        }
        // Before any client can subscribe: no change may get lost between its snapshot
        // and the first event.
        m_events.Open(alarms::EVENT_ALARM, [this](LightEventParam* param) {
            const auto* const event = dynamic_cast<AlarmEvent*>(param);
            if (event != nullptr) m_server->Push(*event);
        });
        m_server->Serve();
        WritePortFile();
        m_isReady = true;
        return 0;
    }

    int fini() override {
        Stop();
        return Service::fini();
    }

    // While init is still running, fini does it when that has ended.
    void ExitThreads() override {
        if (m_isReady) EndThreads();
    }

private:
    AsciiServer::Settings ReadSettings() {
        AsciiServer::Settings settings;
        settings.port = alarms::IntSetting("AsciiPort", 0, 0, kMaxPort, m_log);
        settings.maxClients =
            alarms::IntSetting(TextClients::ITEM, TextClients::DEFAULT, TextClients::MIN, TextClients::MAX, m_log);
        settings.backlog = static_cast<std::size_t>(
            alarms::IntSetting("AsciiBacklog", kDefaultBacklog, kMinBacklog, kMaxBacklog, m_log));
        return settings;
    }

    void WritePortFile() {
        mkdir(alarms::PathInRoot("var").c_str(), 0755);  // is there as a rule
        if (!m_portFile.Write(m_server->Port())) ZO_ERROR(m_log, "%s cannot be written\n", m_portFile.Path().c_str());
    }

    void EndThreads() {
        m_events.Close();
        if (m_server != nullptr) m_server->Stop();
    }

    // Also when the service is removed without ExitThreads: its code is unmapped next,
    // and no thread may be left in it.
    void Stop() {
        EndThreads();
        m_server.reset();
        m_portFile.Remove();
    }

    zo::Log m_log{kService, "zo_ascii_bundle", kService};
    alarms::PortFile m_portFile{alarms::PathInRoot("var/ascii.port")};
    std::unique_ptr<AsciiServer> m_server;
    zo::EventSubscription m_events;
    std::atomic<bool> m_isReady{false};
};

}  // namespace

ZO_SERVICE_FACTORY(AsciiSvc, AsciiSvc);
