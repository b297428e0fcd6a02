// A small network management system: shows the agent's alarms and their changes.
// Everything that it knows of the agent is the naming service's address and alarm.idl.
#include <csignal>
#include <cstdlib>
#include <ctime>

#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <omniORB4/CORBA.h>
#include <omniEvents/CosEventChannelAdmin.hh>
#include <omniORB4/Naming.hh>

#include "alarm.hh"
#include "changejudge.h"
#include "commandline.h"

namespace {

constexpr int kFailed = 1;

constexpr CORBA::ULong kBatch = 100;      // alarms a call
constexpr char kCallTimeout[] = "5000";   // milliseconds
constexpr timespec kCheckEvery = {1, 0};  // while watching: is the channel still there?

/// Ends the program with its text and status 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Options {
    std::string naming = "127.0.0.1:2809";
    std::string host = "127.0.0.1";
    std::string user = "nms";
    std::string ack;
    bool list = false;
    bool watch = false;
    long seconds = 0;  // 0: until interrupted
};

void AddWatch(CLI::App& app, Options& options) {
    const auto take = [&options](const std::string& seconds) {
        options.watch = true;
        if (seconds.empty()) return;
        char* end = nullptr;
        options.seconds = std::strtol(seconds.c_str(), &end, 10);
        if (*end != '\0' || options.seconds <= 0) throw CLI::ValidationError("--watch", seconds + " is no time");
    };
    app.add_option_function<std::string>("--watch", take,
                                         "prints each change as it happens, until interrupted or for SECONDS")
        ->option_text("[SECONDS]")
        ->expected(0, 1);
}

/// @return the status to end with at once, if any
std::optional<int> ParseOptions(int argc, char* argv[], Options& options) {
    commandline::Parser parser("zo_nms",
                               "[--naming HOST:PORT] [--host ADDRESS] [--list] [--watch [SECONDS]]\n"
                               "              [--ack ID [--user NAME]]",
                               "Shows the agent's alarms and their changes.");
    const auto addText = [&parser](const char* name, const char* label, std::string& text, const char* description) {
        parser.add_option(name, text, description)->option_text(label)->check(commandline::NotEmpty());
    };
    addText("--naming", "HOST:PORT", options.naming, "the naming service (127.0.0.1:2809)");
    addText("--host", "ADDRESS", options.host, "this host's address, where the event channel reaches it (127.0.0.1)");
    parser.add_flag("--list", options.list, "prints the active alarms; what it does when nothing else is asked for");
    AddWatch(parser, options);
    addText("--ack", "ID", options.ack, "acknowledges an alarm, as NAME (nms)");
    addText("--user", "NAME", options.user, "who acknowledges it");
    parser.footer("\nEnds with 0; 1 when something is not there or not answering; 2 for wrong arguments.");
    parser.final_callback([&options] {
        if (!options.watch && options.ack.empty()) options.list = true;
    });
    return parser.Parse(argc, argv);
}

std::string Describe(const CORBA::Exception& error) {
    const auto* const system = CORBA::SystemException::_downcast(&error);
    const char* const detail = system != nullptr ? system->NP_minorString() : nullptr;
    return detail != nullptr ? detail : error._name();
}

const char* SeverityName(NbiAlarm::Severity severity) {
    switch (severity) {
        case NbiAlarm::INDETERMINATE:
            return "indeterminate";
        case NbiAlarm::CRITICAL:
            return "critical";
        case NbiAlarm::MAJOR:
            return "major";
        case NbiAlarm::MINOR:
            return "minor";
        case NbiAlarm::WARNING:
            return "warning";
    }
    return "?";
}

const char* KindName(NbiAlarm::ChangeKind kind) {
    switch (kind) {
        case NbiAlarm::RAISED:
            return "RAISED";
        case NbiAlarm::CHANGED:
            return "CHANGED";
        case NbiAlarm::CLEARED:
            return "CLEARED";
    }
    return "?";
}

/// The value of an attribute by the name that a change uses for it.
std::string AttributeText(const NbiAlarm::Alarm& alarm, const std::string& name) {
    if (name == "object") return alarm.managedObject.in();
    if (name == "severity") return SeverityName(alarm.perceivedSeverity);
    if (name == "cause") return alarm.probableCause.in();
    if (name == "time") return alarm.eventTime.in();
    if (name == "text") return alarm.additionalText.in();
    if (name == "ack.user") return alarm.acknowledgedBy.in();
    return "?";
}

/// A ";" or a control character inside a value becomes a blank, so that a line stays one
/// line and can be taken apart at the ";".
std::string Value(std::string text) {
    for (char& c : text) {
        if (c == ';' || static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = ' ';
    }
    return text;
}

std::string AttributeField(const NbiAlarm::Alarm& alarm, const std::string& name) {
    return ";" + name + "=" + Value(AttributeText(alarm, name));
}

void PrintAlarm(const NbiAlarm::Alarm& alarm) {
    std::string line = "ALARM id=" + Value(alarm.id.in());
    for (const char* const name : {"object", "severity", "cause", "time", "text", "ack.user"}) {
        line += AttributeField(alarm, name);
    }
    std::puts(line.c_str());
}

void PrintChange(const NbiAlarm::AlarmChange& change) {
    std::string line = KindName(change.kind);
    line += " " + std::to_string(change.where.sequenceNumber) + " id=" + Value(change.theAlarm.id.in());
    for (CORBA::ULong i = 0; i < change.changedAttributes.length(); ++i) {
        line += AttributeField(change.theAlarm, change.changedAttributes[i].in());
    }
    std::puts(line.c_str());
    std::fflush(stdout);  // a reader behind a pipe wants to see it now
}

ChangePosition FromIdl(const NbiAlarm::Position& position) {
    return {position.agentStart, position.sequenceNumber};
}

/// What a client has missed before a change.
void PrintWarnings(const ChangeJudgement& judgement) {
    if (judgement.restarted) std::puts("RESTARTED the agent has begun anew, list its alarms again");
    if (judgement.lost != 0) std::printf("LOST %" PRIu64 " changes, list the alarms again\n", judgement.lost);
}

sigset_t EndSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

/// Receives the changes from the channel and prints those that are news.
class Watcher : public POA_CosEventComm::PushConsumer {
public:
    void push(const CORBA::Any& event) override {
        const NbiAlarm::AlarmChange* change = nullptr;
        if (!(event >>= change)) return;  // somebody else's event
        const std::lock_guard<std::mutex> guard(m_mutex);
        const ChangeJudgement judgement = m_judge.Judge(FromIdl(change->where));
        if (!judgement.isNews) return;
        PrintWarnings(judgement);
        PrintChange(*change);
    }

    void disconnect_push_consumer() override {}

    /// Holds changes back while the alarms are being listed.
    std::mutex& Mutex() { return m_mutex; }

    /// @param last of the last change that the list contains
    void SetListed(const NbiAlarm::Position& last) { m_judge.SetListed(FromIdl(last)); }

private:
    std::mutex m_mutex;
    ChangeJudge m_judge;  // guarded by m_mutex
};

class Nms {
public:
    explicit Nms(const Options& options);
    ~Nms();

    void List();
    void Acknowledge(const std::string& id, const std::string& user);
    void Watch(bool listFirst, long seconds);

private:
    CORBA::Object_ptr Resolve(const char* name);
    NbiAlarm::Agent_ptr Agent();
    void Subscribe();
    void Unsubscribe();
    void CheckSubscription();

    const std::string m_naming;
    CORBA::ORB_var m_orb;
    PortableServer::POA_var m_poa;
    PortableServer::Servant_var<Watcher> m_watcher;
    CosEventChannelAdmin::ProxyPushSupplier_var m_supplier;
    bool m_away = false;
};

Nms::Nms(const Options& options) : m_naming(options.naming), m_watcher(new Watcher) {
    const std::string endPoint = "giop:tcp:" + options.host + ":";
    const char* orbOptions[][2] = {{"endPoint", endPoint.c_str()},
                                   {"nativeCharCodeSet", "UTF-8"},
                                   {"clientCallTimeOutPeriod", kCallTimeout},
                                   {nullptr, nullptr}};
    int argc = 0;
    m_orb = CORBA::ORB_init(argc, nullptr, "omniORB4", orbOptions);
    const CORBA::Object_var object = m_orb->resolve_initial_references("RootPOA");
    m_poa = PortableServer::POA::_narrow(object);
}

Nms::~Nms() {
    try {
        m_orb->destroy();
    } catch (const CORBA::Exception&) {
        // The process ends anyway.
    }
}

CORBA::Object_ptr Nms::Resolve(const char* name) {
    try {
        const CORBA::Object_var object = m_orb->string_to_object(("corbaloc::" + m_naming + "/NameService").c_str());
        const auto root = CosNaming::NamingContextExt_var(CosNaming::NamingContextExt::_narrow(object));
        if (CORBA::is_nil(root)) throw Failure("there is no naming service at " + m_naming);
        return root->resolve_str(name);
    } catch (const CosNaming::NamingContext::NotFound&) {
        throw Failure(std::string(name) + " is not in the naming service at " + m_naming + "; is the agent running?");
    } catch (const CORBA::Exception& error) {
        throw Failure("the naming service at " + m_naming + " does not answer (" + Describe(error) + ")");
    }
}

NbiAlarm::Agent_ptr Nms::Agent() {
    const CORBA::Object_var object = Resolve("zo/AlarmAgent");
    const NbiAlarm::Agent_ptr agent = NbiAlarm::Agent::_narrow(object);
    if (CORBA::is_nil(agent)) throw Failure("zo/AlarmAgent in the naming service is not an agent");
    return agent;
}

void Nms::List() {
    const NbiAlarm::Agent_var agent = Agent();
    NbiAlarm::AlarmSeq_var alarms;
    NbiAlarm::AlarmIterator_var rest;
    const NbiAlarm::Position last = agent->getActiveAlarms(kBatch, alarms.out(), rest.out());
    std::size_t count = 0;
    do {
        for (CORBA::ULong i = 0; i < alarms->length(); ++i) PrintAlarm(alarms[i]);
        count += alarms->length();
    } while (!CORBA::is_nil(rest) && rest->next_n(kBatch, alarms.out()));
    std::printf("END %zu\n", count);
    std::fflush(stdout);
    m_watcher->SetListed(last);
}

void Nms::Acknowledge(const std::string& id, const std::string& user) {
    const NbiAlarm::Agent_var agent = Agent();
    try {
        agent->acknowledge(id.c_str(), user.c_str());
    } catch (const NbiAlarm::NoSuchAlarm&) {
        throw Failure("no alarm '" + id + "' is active");
    }
    std::printf("ACKNOWLEDGED id=%s;ack.user=%s\n", id.c_str(), user.c_str());
}

void Nms::Watch(bool listFirst, long seconds) {
    const PortableServer::ObjectId_var id = m_poa->activate_object(m_watcher);
    const PortableServer::POAManager_var manager = m_poa->the_POAManager();
    manager->activate();
    {
        // First subscribe, then list: no change falls in between.
        const std::lock_guard<std::mutex> guard(m_watcher->Mutex());
        Subscribe();
        if (listFirst) List();
    }
    std::puts("WATCHING");
    std::fflush(stdout);

    // Blocked since main began, so that a signal waits until it is taken here.
    const sigset_t signals = EndSignals();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (sigtimedwait(&signals, nullptr, &kCheckEvery) < 0) {
        if (seconds > 0 && std::chrono::steady_clock::now() >= end) break;
        CheckSubscription();
    }
    Unsubscribe();
}

void Nms::Subscribe() {
    const CORBA::Object_var object = Resolve("zo/AlarmChannel");
    const auto channel = CosEventChannelAdmin::EventChannel_var(CosEventChannelAdmin::EventChannel::_narrow(object));
    if (CORBA::is_nil(channel)) throw Failure("zo/AlarmChannel in the naming service is not an event channel");
    const CosEventChannelAdmin::ConsumerAdmin_var admin = channel->for_consumers();
    const CosEventChannelAdmin::ProxyPushSupplier_var supplier = admin->obtain_push_supplier();
    const CosEventComm::PushConsumer_var watcher = m_watcher->_this();
    supplier->connect_push_consumer(watcher);
    m_supplier = supplier;
}

void Nms::Unsubscribe() {
    try {
        if (!CORBA::is_nil(m_supplier)) m_supplier->disconnect_push_supplier();
    } catch (const CORBA::Exception&) {
        // The channel is away; it finds out that we are when it pushes again.
    }
}

/// Subscribes anew when the channel was lost. One that was only out of reach still
/// knows us when it is back.
void Nms::CheckSubscription() {
    std::string why;
    try {
        if (CORBA::is_nil(m_supplier) || m_supplier->_non_existent()) {
            m_supplier = CosEventChannelAdmin::ProxyPushSupplier::_nil();
            Subscribe();
        }
    } catch (const Failure& failure) {
        why = failure.what();
    } catch (const CORBA::Exception& error) {
        why = Describe(error);
    }
    const bool away = !why.empty();
    if (away && !m_away) std::fprintf(stderr, "zo_nms: the event channel is away (%s), trying again\n", why.c_str());
    if (!away && m_away) std::fprintf(stderr, "zo_nms: the event channel is there again\n");
    m_away = away;
}

void Run(const Options& options) {
    Nms nms(options);
    if (!options.ack.empty()) nms.Acknowledge(options.ack, options.user);
    if (options.watch) {
        nms.Watch(options.list, options.seconds);
    } else if (options.list) {
        nms.List();
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        if (const std::optional<int> status = ParseOptions(argc, argv, options)) return *status;
        // Before there are threads. Who only lists may be interrupted in the usual way.
        const sigset_t signals = EndSignals();
        if (options.watch) sigprocmask(SIG_BLOCK, &signals, nullptr);
        Run(options);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "zo_nms: %s\n", failure.what());
        return kFailed;
    } catch (const CORBA::Exception& error) {
        std::fprintf(stderr, "zo_nms: the agent or the event channel does not answer (%s)\n", Describe(error).c_str());
        return kFailed;
    }
    return 0;
}
