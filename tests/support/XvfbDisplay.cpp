#include "XvfbDisplay.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

const int kFirstDisplay = 90;
const int kDisplaysTried = 100;
const auto kPoll = std::chrono::milliseconds(20);
const auto kStartTimeout = std::chrono::seconds(15);

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

// Runs the command with DISPLAY set, its output discarded.
pid_t spawn(const std::vector<std::string>& command, const std::string& display) {
    // Everything the child needs is prepared before the fork.
    std::vector<char*> argv;
    for (const std::string& part : command)
        argv.push_back(const_cast<char*>(part.c_str()));
    argv.push_back(nullptr);
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    const int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    if (!display.empty())
        setenv("DISPLAY", display.c_str(), 1);
    execvp(argv[0], argv.data());
    _exit(127);
}

bool hasExited(pid_t pid) {
    int status = 0;
    return waitpid(pid, &status, WNOHANG) == pid;
}

void terminate(pid_t* pid) {
    if (*pid <= 0)
        return;
    kill(*pid, SIGTERM);
    int status = 0;
    waitpid(*pid, &status, 0);
    *pid = -1;
}

// Polls until ready() holds, the process has gone, or the time is up.
template <typename Ready>
bool waitFor(pid_t pid, Ready ready) {
    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (ready())
            return true;
        if (hasExited(pid))
            return false;
        std::this_thread::sleep_for(kPoll);
    }
    return false;
}

}  // namespace

XvfbDisplay::~XvfbDisplay() {
    stop();
}

bool XvfbDisplay::start(bool withWindowManager, std::string* error) {
    for (int number = kFirstDisplay; number < kFirstDisplay + kDisplaysTried; ++number) {
        if (startServer(number))
            break;
    }
    if (m_server <= 0) {
        *error = "Xvfb did not start on any free display";
        return false;
    }
    if (withWindowManager && !startWindowManager()) {
        *error = "openbox did not start on " + name();
        stop();
        return false;
    }
    return true;
}

bool XvfbDisplay::startServer(int number) {
    const std::string display = ":" + std::to_string(number);
    const std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
    // Taken by another server, or by one that is starting.
    if (exists(socket) || exists("/tmp/.X" + std::to_string(number) + "-lock"))
        return false;
    const pid_t pid = spawn({"Xvfb", display, "-screen", "0", "1600x1000x24", "-dpi", "96",
                             "-nolisten", "tcp", "-noreset"},
                            std::string());
    if (pid <= 0)
        return false;
    if (!waitFor(pid, [&socket] { return exists(socket); })) {
        pid_t lost = pid;
        terminate(&lost);
        return false;
    }
    m_server = pid;
    m_number = number;
    return true;
}

bool XvfbDisplay::startWindowManager() {
    m_manager = spawn({"openbox", "--sm-disable"}, name());
    return m_manager > 0 && waitFor(m_manager, [this] { return windowManagerRuns(); });
}

// A window manager announces itself on the root window (EWMH).
bool XvfbDisplay::windowManagerRuns() const {
    const std::string command =
        "DISPLAY=" + name() + " xprop -root -notype _NET_SUPPORTING_WM_CHECK 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe)
        return false;
    char line[256] = {0};
    const bool read = fgets(line, sizeof line, pipe) != nullptr;
    pclose(pipe);
    return read && std::string(line).find("window id") != std::string::npos;
}

void XvfbDisplay::stop() {
    terminate(&m_manager);
    terminate(&m_server);
}
