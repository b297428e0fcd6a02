#include <cstdlib>

#include <bundlemgr/log.h>

#include "benchlog.h"
#include "log/logger.h"

using namespace NS_BUNDLEMGR1;

namespace bench {

namespace {

class Ours : public Logger {
public:
    Ours(const std::string& directory, LogMode mode) {
        setenv("_APP_LOG_DIR", directory.c_str(), 1);
        m_proxy = &Log(mode == LogMode::Immediate ? LOG_OUTPUT_IMMEDIATE : LOG_OUTPUT_BUFFERED);
    }
    ~Ours() override { LogProxyDebugInfoBufMgr::Destroy(); }

    void Write(const char* text) override {
        m_proxy->SetPosition("ours", __LINE__);
        m_proxy->Printf(LOG_LEVEL_INFO, "%s\n", text);
    }
    void Drain() override { m_proxy->FlushDebugInfo(); }

private:
    LogProxy* m_proxy;
};

}  // namespace

std::unique_ptr<Logger> MakeOurs(const std::string& directory, LogMode mode) {
    return std::make_unique<Ours>(directory, mode);
}

}  // namespace bench
