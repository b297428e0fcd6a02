#include <fstream>

#include <boost/core/null_deleter.hpp>
#include <boost/log/attributes.hpp>
#include <boost/log/core.hpp>
#include <boost/log/expressions.hpp>
#include <boost/log/sinks/sync_frontend.hpp>
#include <boost/log/sinks/text_ostream_backend.hpp>
#include <boost/log/sources/severity_channel_logger.hpp>
#include <boost/log/support/date_time.hpp>
#include <boost/log/trivial.hpp>
#include <boost/log/utility/manipulators/add_value.hpp>
#include <boost/log/utility/setup/common_attributes.hpp>
#include <boost/make_shared.hpp>

#include "log/logger.h"

namespace logging = boost::log;

namespace bench {

namespace {

using Sink = logging::sinks::synchronous_sink<logging::sinks::text_ostream_backend>;
using Source = logging::sources::severity_channel_logger_mt<logging::trivial::severity_level, std::string>;

class BoostLog : public Logger {
public:
    BoostLog(const std::string& directory, LogMode mode)
        : m_sink(boost::make_shared<Sink>()), m_source(logging::keywords::channel = "Bench") {
        namespace expr = logging::expressions;
        static const bool s_isReady = (logging::add_common_attributes(), true);
        (void)s_isReady;
        m_sink->locked_backend()->add_stream(boost::make_shared<std::ofstream>(directory + "/boost.log"));
        m_sink->locked_backend()->auto_flush(mode == LogMode::Immediate);
        m_sink->set_formatter(
            expr::stream << '[' << expr::format_date_time<boost::posix_time::ptime>("TimeStamp", "%Y-%m-%d %H:%M:%S.%f")
                         << "] [" << expr::attr<logging::attributes::current_thread_id::value_type>("ThreadID") << "] ["
                         << expr::attr<logging::trivial::severity_level>("Severity") << "] ["
                         << expr::attr<std::string>("Channel") << "] [" << expr::attr<const char*>("File") << ':'
                         << expr::attr<int>("Line") << "] " << expr::smessage);
        logging::core::get()->add_sink(m_sink);
    }
    ~BoostLog() override { logging::core::get()->remove_sink(m_sink); }

    void Write(const char* text) override {
        BOOST_LOG_SEV(m_source, logging::trivial::info)
            << logging::add_value("File", __FILE__) << logging::add_value("Line", __LINE__) << text;
    }
    void Drain() override { m_sink->flush(); }

private:
    const boost::shared_ptr<Sink> m_sink;
    Source m_source;
};

}  // namespace

std::unique_ptr<Logger> MakeBoostLog(const std::string& directory, LogMode mode) {
    return std::make_unique<BoostLog>(directory, mode);
}

}  // namespace bench
