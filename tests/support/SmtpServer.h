// An SMTP server on loopback, run by Debian's python3-aiosmtpd for one test
// (support/smtp_server.py): login "clerk" / "s3cret", TLS from a certificate
// made by openssl in the test's folder.
#pragma once

#include "support/Files.h"
#include "support/TempDir.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace vellira::testing {

class SmtpServer {
public:
    // MODE: plain, ssl or starttls; on `port`, or a free one for 0.
    SmtpServer(const TempDir& dir, const std::string& mode, const std::vector<std::string>& extra = {}, int port = 0) {
        if (!std::filesystem::exists(dir / "cert.pem") &&
            std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -addext "
                         "subjectAltName=DNS:localhost,IP:127.0.0.1 -keyout '" +
                         (dir / "key.pem").string() + "' -out '" + (dir / "cert.pem").string() + "' 2>/dev/null")
                            .c_str()) != 0)
            return;
        received_ = dir / ("received-" + mode + std::to_string(++count_));
        std::filesystem::create_directories(received_);
        const auto portFile = received_.string() + ".port";
        const std::string script =
            port ? std::filesystem::path(VELLIRA_SMTP_SERVER).replace_filename("smtp_server_on_port.py").string()
                 : std::string(VELLIRA_SMTP_SERVER);
        std::vector<std::string> args = {"/usr/bin/python3", script, received_.string(), portFile, mode};
        args.insert(args.end(), {"--cert", (dir / "cert.pem").string(), "--key", (dir / "key.pem").string(), "--user",
                                 "clerk", "--password", "s3cret"});
        args.insert(args.end(), extra.begin(), extra.end());
        pid_ = fork();
        if (pid_ == 0) {
            std::vector<char*> argv;
            for (auto& arg : args) argv.push_back(arg.data());
            argv.push_back(nullptr);
            if (!std::freopen("/dev/null", "w", stderr)) _exit(126);
            if (port) setenv("SMTP_PORT", std::to_string(port).c_str(), 1);
            execv(argv[0], argv.data());
            _exit(127);
        }
        for (int wait = 0; wait < 300 && !std::filesystem::exists(portFile); ++wait)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (std::filesystem::exists(portFile)) port_ = std::stoi(readFile(portFile));
    }
    ~SmtpServer() {
        if (pid_ <= 0) return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    SmtpServer(const SmtpServer&) = delete;
    SmtpServer& operator=(const SmtpServer&) = delete;

    int port() const { return port_; }
    // A port nothing listens on, for now.
    static int freePort() {
        const int probe = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        bind(probe, reinterpret_cast<sockaddr*>(&address), size);
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size);
        close(probe);
        return ntohs(address.sin_port);
    }
    // The messages received, in order, each a folder (envelope.txt,
    // headers.txt, raw.eml, body.txt and the attachments).
    std::vector<std::filesystem::path> messages() const {
        std::vector<std::filesystem::path> found;
        for (int n = 1; std::filesystem::exists(received_ / ("msg-" + std::to_string(n))); ++n)
            found.push_back(received_ / ("msg-" + std::to_string(n)));
        return found;
    }

private:
    static inline int count_ = 0;
    std::filesystem::path received_;
    pid_t pid_ = -1;
    int port_ = 0;
};

}  // namespace vellira::testing
