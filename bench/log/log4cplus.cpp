#include <log4cplus/fileappender.h>
#include <log4cplus/layout.h>
#include <log4cplus/log4cplus.h>

#include "log/logger.h"

namespace bench {

namespace {

/// One that is flushed when it is asked to, not only by the next record.
class FlushedAppender : public log4cplus::FileAppender {
public:
    using FileAppender::FileAppender;
    void Flush() { out.flush(); }
};

class Log4cplus : public Logger {
public:
    Log4cplus(const std::string& directory, LogMode mode)
        : m_appender(
              new FlushedAppender(directory + "/log4cplus.log", std::ios_base::trunc, mode == LogMode::Immediate)),
          m_logger(log4cplus::Logger::getInstance("Bench")) {
        m_appender->setLayout(
            std::make_unique<log4cplus::PatternLayout>("%D{%Y-%m-%d %H:%M:%S.%q} [%t] %p %c %F:%L %m%n"));
        m_logger.setAdditivity(false);
        m_logger.setLogLevel(log4cplus::INFO_LOG_LEVEL);
        m_logger.addAppender(m_appender);
    }
    ~Log4cplus() override {
        m_logger.removeAllAppenders();
        m_appender->close();
    }

    void Write(const char* text) override { LOG4CPLUS_INFO(m_logger, text); }

    void Drain() override { static_cast<FlushedAppender&>(*m_appender).Flush(); }

private:
    log4cplus::SharedAppenderPtr m_appender;
    log4cplus::Logger m_logger;
};

}  // namespace

std::unique_ptr<Logger> MakeLog4cplus(const std::string& directory, LogMode mode) {
    static const log4cplus::Initializer s_library;
    return std::make_unique<Log4cplus>(directory, mode);
}

}  // namespace bench
