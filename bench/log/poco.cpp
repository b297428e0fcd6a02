#include <Poco/AutoPtr.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include "log/logger.h"

namespace bench {

namespace {

class PocoLog : public Logger {
public:
    PocoLog(const std::string& directory, LogMode mode)
        : m_path(directory + "/poco.log"),
          m_file(new Poco::FileChannel(m_path)),
          m_channel(new Poco::FormattingChannel(Poco::AutoPtr<Poco::PatternFormatter>(new Poco::PatternFormatter(
                                                    "[%Y-%m-%d %H:%M:%S.%F] [%I] [%p] [%s] [%U:%u] %t")),
                                                m_file)),
          m_logger(Poco::Logger::create("Bench", m_channel, Poco::Message::PRIO_INFORMATION)) {
        m_file->setProperty(Poco::FileChannel::PROP_FLUSH, mode == LogMode::Immediate ? "true" : "false");
    }
    ~PocoLog() override { Poco::Logger::destroy("Bench"); }

    void Write(const char* text) override { m_logger.information(text, __FILE__, __LINE__); }

    /// It writes what is left when the file is closed; the next record opens it again.
    void Drain() override { m_file->close(); }

private:
    const std::string m_path;
    Poco::AutoPtr<Poco::FileChannel> m_file;
    Poco::AutoPtr<Poco::FormattingChannel> m_channel;
    Poco::Logger& m_logger;
};

}  // namespace

std::unique_ptr<Logger> MakePoco(const std::string& directory, LogMode mode) {
    return std::make_unique<PocoLog>(directory, mode);
}

}  // namespace bench
