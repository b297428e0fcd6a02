// A client of the agent's text server: sends commands and prints what comes, until the
// server closes the connection.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <ace/INET_Addr.h>
#include <ace/SOCK_Connector.h>
#include <ace/SOCK_Stream.h>
#include <ace/Time_Value.h>

#include <bundlemgr/base.h>

namespace {

constexpr char kUsage[] =
    "usage: zo_ascii_client (--port N | --port-file FILE) [--host HOST] [--from CHARSET] COMMAND...\n"
    "\n"
    "Sends each COMMAND (LIST, SUBSCRIBE, QUIT) as a line and prints what the agent\n"
    "answers until it closes the connection.\n"
    "\n"
    "  --port-file FILE  take the port from the file that the agent writes\n"
    "  --from CHARSET    print in UTF-8 what comes in CHARSET, for example GBK\n"
    "  --help            print this text\n";

constexpr int kConnectSeconds = 5;

enum ExitStatus : int {
    EXIT_CLOSED = 0,
    EXIT_NO_CONNECTION = 1,
    EXIT_WRONG_USAGE = 2,
};

struct Options {
    std::string host = "127.0.0.1";
    int port = 0;
    std::string charset;
    std::vector<std::string> commands;
};

int ReadPort(const char* file) {
    std::vector<NS_BUNDLEMGR1::NameValueStru> lines;
    int port = 0;
    NS_BUNDLEMGR1::GetAllCfgFrmFile(lines, file, false);
    if (!lines.empty()) NS_BUNDLEMGR1::Str2Int(lines.front().value, port);
    return port;
}

bool ParseOptions(int argc, char* argv[], Options& options) {
    int i = 1;
    for (; i + 1 < argc && std::strncmp(argv[i], "--", 2) == 0; i += 2) {
        const std::string name = argv[i];
        if (name == "--host") {
            options.host = argv[i + 1];
        } else if (name == "--port") {
            NS_BUNDLEMGR1::Str2Int(argv[i + 1], options.port);
        } else if (name == "--port-file") {
            options.port = ReadPort(argv[i + 1]);
        } else if (name == "--from") {
            options.charset = argv[i + 1];
        } else {
            return false;
        }
    }
    options.commands.assign(argv + i, argv + argc);
    return options.port > 0 && options.port <= 65535 && !options.commands.empty() &&
           options.commands.front().rfind("--", 0) != 0;
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
    if (argc > 1 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kUsage, stdout);
        return EXIT_CLOSED;
    }
    Options options;
    if (!ParseOptions(argc, argv, options)) {
        std::fputs(kUsage, stderr);
        return EXIT_WRONG_USAGE;
    }
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
