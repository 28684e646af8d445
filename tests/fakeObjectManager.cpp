// A program in the place of an object manager's daemon, for the tests of what starts, stops and asks it. Each start
// appends a line with its user to <program>.ran. The words in <program>.ways change what it does:
//   mute        does not listen, though a daemon should; mute-once: at the next start only
//   slow, deaf  ends a second after SIGTERM; does not end
//   ignorant    knows no class
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace {

volatile sig_atomic_t ending = 0;

int listenerAt(unsigned short port) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0), on = 1;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool listens =
        bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 && listen(fd, 8) == 0;
    return listens ? fd : -1; // the port is still another's: it goes on without, as the real one does
}

void answer(int client, bool ignorant) {
    const std::string body = ignorant ? "<IMETHODRESPONSE NAME=\"GetClass\"><ERROR CODE=\"6\"/></IMETHODRESPONSE>"
                                      : "<IMETHODRESPONSE NAME=\"GetClass\"><CLASS/></IMETHODRESPONSE>";
    const std::string text = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
    std::string question;
    char part[4096];
    for (ssize_t got = 1; got > 0 && question.find("</CIM>") == question.npos;) {
        got = read(client, part, sizeof part);
        question.append(part, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    }
    if (write(client, text.data(), text.size()) < 0) {
        // whoever asked has gone
    }
    close(client);
}

} // namespace

int main(int argc, char **argv) {
    char path[PATH_MAX] = {};
    if (readlink("/proc/self/exe", path, sizeof path - 1) < 0)
        return 1;
    const std::string program = path;
    std::ofstream(program + ".ran", std::ios::app) << getuid() << "\n";
    std::stringstream ways;
    ways << " " << std::ifstream(program + ".ways").rdbuf() << " ";
    const auto has = [text = ways.str()](const char *word) {
        return text.find(std::string(" ") + word + " ") != text.npos;
    };
    if (has("mute-once"))
        std::ofstream(program + ".ways") << "";
    if (argc > 1 && strcmp(argv[1], "-d") == 0 && daemon(0, 0) != 0)
        return 1;
    const int listener = has("mute") || has("mute-once") ? -1 : listenerAt(5988);
    const pid_t provider = fork();
    if (provider == 0)
        for (;;)
            pause();
    struct sigaction act = {};
    act.sa_handler = [](int) { ending = 1; };
    sigaction(SIGTERM, &act, nullptr);
    while (!ending || has("deaf")) {
        const int client = listener >= 0 ? accept(listener, nullptr, nullptr) : (pause(), -1);
        if (client >= 0)
            answer(client, has("ignorant"));
    }
    sleep(has("slow") ? 1 : 0);
    kill(provider, SIGKILL);
    return 0;
}
