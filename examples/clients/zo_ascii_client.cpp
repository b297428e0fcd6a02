// A client of the agent's text server: sends commands and prints what comes, until the
// server closes the connection.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <ace/INET_Addr.h>
#include <ace/SOCK_Connector.h>
#include <ace/SOCK_Stream.h>
#include <ace/Time_Value.h>

#include <bundlemgr/base.h>

#include "commandline.h"

namespace {

constexpr int kConnectSeconds = 5;

enum ExitStatus : int {
    EXIT_CLOSED = 0,
    EXIT_NO_CONNECTION = 1,
};

struct Options {
    std::string host = "127.0.0.1";
    int port = 0;
    std::string charset;
    std::vector<std::string> commands;
};

int ReadPort(const std::string& file) {
    std::vector<NS_BUNDLEMGR1::NameValueStru> lines;
    int port = 0;
    NS_BUNDLEMGR1::GetAllCfgFrmFile(lines, file, false);
    if (!lines.empty()) NS_BUNDLEMGR1::Str2Int(lines.front().value, port);
    return port;
}

/// @return the status to end with at once, if any
std::optional<int> ParseOptions(int argc, char* argv[], Options& options) {
    commandline::Parser parser("zo_ascii_client",
                               "(--port N | --port-file FILE) [--host HOST] [--from CHARSET] COMMAND...",
                               "Sends each COMMAND (LIST, SUBSCRIBE, QUIT) as a line and prints what the agent\n"
                               "answers until it closes the connection.");
    parser.add_option("--port", options.port, "the agent's port")->option_text("N");
    parser
        .add_option_function<std::string>(
            "--port-file", [&options](const std::string& file) { options.port = ReadPort(file); },
            "take the port from the file that the agent writes")
        ->option_text("FILE");
    parser.add_option("--host", options.host, "the agent's host (127.0.0.1)")->option_text("HOST");
    parser.add_option("--from", options.charset, "print in UTF-8 what comes in CHARSET, for example GBK")
        ->option_text("CHARSET");
    parser.add_option("COMMAND", options.commands)->required();
    parser.final_callback([&options] {
        if (options.port < 1 || options.port > 65535) throw CLI::ValidationError("--port", "none from 1 to 65535");
    });
    return parser.Parse(argc, argv);
}

bool Connect(const Options& options, ACE_SOCK_Stream& peer) {
    const ACE_INET_Addr address(static_cast<u_short>(options.port), options.host.c_str());
    const ACE_Time_Value timeout(kConnectSeconds);
    return ACE_SOCK_Connector().connect(peer, address, &timeout) == 0;
}

bool SendCommands(const std::vector<std::string>& commands, ACE_SOCK_Stream& peer) {
    std::string text;
    for (const std::string& command : commands) text += command + "\n";
    return peer.send_n(text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

void PrintLine(const std::string& line, const std::string& charset) {
    std::string text = line;
    if (!charset.empty()) NS_BUNDLEMGR1::CodeSetConvert(charset, "UTF-8", line, text);
    std::printf("%s\n", text.c_str());
    std::fflush(stdout);  // a line is news, also for whoever reads a pipe
}

void PrintAnswers(ACE_SOCK_Stream& peer, const std::string& charset) {
    std::string waiting;
    char data[4096];
    for (;;) {
        const ssize_t count = peer.recv(data, sizeof data);
        if (count <= 0) return;
        waiting.append(data, static_cast<std::size_t>(count));
        std::string::size_type begin = 0;
        for (std::string::size_type end = 0; (end = waiting.find('\n', begin)) != std::string::npos; begin = end + 1) {
            PrintLine(waiting.substr(begin, end - begin), charset);
        }
        waiting.erase(0, begin);
    }
}

}  // namespace

int main(int argc, char* argv[]) {
    Options options;
    if (const std::optional<int> status = ParseOptions(argc, argv, options)) return *status;
    std::signal(SIGPIPE, SIG_IGN);  // a server that is gone is a failed write
    ACE_SOCK_Stream peer;
    if (!Connect(options, peer) || !SendCommands(options.commands, peer)) {
        std::fprintf(stderr, "zo_ascii_client: no connection to %s:%d: %s\n", options.host.c_str(), options.port,
                     std::strerror(errno));
        return EXIT_NO_CONNECTION;
    }
    PrintAnswers(peer, options.charset);
    peer.close();
    return EXIT_CLOSED;
}
