#include <glog/logging.h>

#include "log/logger.h"

namespace bench {

namespace {

class Glog : public Logger {
public:
    Glog(const std::string& directory, LogMode mode) {
        static const bool s_isReady = (google::InitGoogleLogging("bench"), true);
        (void)s_isReady;
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        FLAGS_logbuflevel = mode == LogMode::Immediate ? -1 : google::GLOG_INFO;
        google::SetLogSymlink(google::GLOG_INFO, "");
        google::SetLogDestination(google::GLOG_INFO, (directory + "/glog.").c_str());
    }
    ~Glog() override { Drain(); }

    void Write(const char* text) override { LOG(INFO) << "Bench " << text; }
    void Drain() override { google::FlushLogFiles(google::GLOG_INFO); }
};

}  // namespace

std::unique_ptr<Logger> MakeGlog(const std::string& directory, LogMode mode) {
    return std::make_unique<Glog>(directory, mode);
}

}  // namespace bench
