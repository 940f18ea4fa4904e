#include "DhcpClient.h"

#include "FileIo.h"
#include "Log.h"
#include "SystemError.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace DeviceService {

namespace {

using namespace std::chrono_literals;

constexpr int kStopTimeoutMs = 10000; // a release waits for the server's network
// Where the kernel has no pidfd_open (before 5.3, or under valgrind), the
// keeper's end is noticed by looking this often.
constexpr int kKeeperPollMs = 200;
constexpr auto kLeftoverTimeout = 5s; // a client left by an earlier service
constexpr auto kHelpersTimeout = 1s;  // dhcpcd's helpers after dhcpcd ended
constexpr auto kStableRun = 60s;      // a client that ran this long starts again at once
constexpr std::chrono::seconds kMaxBackoff{32};
const char* const kLeaseFiles[] = {"dhcp", "ipv4ll"};

// IPv4 only, DNS servers asked for, no start-up delay, and no time limit:
// dhcpcd keeps asking while it holds a link-local address.
std::string ConfigText(const std::string& interfaceName) {
    return "# Written by velbor-device-service for " + interfaceName +
           "\nipv4only\nnoipv6rs\nnodelay\ntimeout 0\noption domain_name_servers\n";
}

// dhcpcd runs the hook with `reason` and the new_* values of the lease. It
// keeps a lease in the file dhcp and a link-local address in the file ipv4ll,
// each replaced whole by a rename so that the service never reads half a
// file; a file is removed when its address is gone.
const char* const kHookHead =
    "#!/bin/sh\n"
    "# Written by velbor-device-service: reports dhcpcd's address to the service.\n"
    "PATH=/usr/sbin:/usr/bin:/sbin:/bin\n"
    "dir='";
const char* const kHookBody = R"('
put() {
    printf 'ip=%s\nmask=%s\nrouters=%s\ndns=%s\n' "$new_ip_address" "$new_subnet_mask" \
        "$new_routers" "$new_domain_name_servers" >"$dir/$1.new" && mv -f "$dir/$1.new" "$dir/$1"
}
case "$reason" in
BOUND | REBOOT | RENEW | REBIND | STATIC) put dhcp ;;
EXPIRE | NAK | RELEASE | FAIL) rm -f "$dir/dhcp" ;;
IPV4LL) if [ -n "$new_ip_address" ]; then put ipv4ll; else rm -f "$dir/ipv4ll"; fi ;;
PREINIT | NOCARRIER | DEPARTED | STOP | STOPPED) rm -f "$dir/dhcp" "$dir/ipv4ll" ;;
esac
)";

Result<void> WriteFile(const std::string& path, const std::string& text, mode_t mode) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, mode);
    if (fd < 0) {
        return SystemError("cannot create " + path);
    }
    const bool written = fchmod(fd, mode) == 0 && WriteAll(fd, text);
    const bool closed = close(fd) == 0;
    return written && closed ? Result<void>(Ok{}) : SystemError("cannot write " + path);
}

std::optional<std::string> ReadFile(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return file ? std::optional<std::string>(text.str()) : std::nullopt;
}

// The program's path: as given when it holds a slash, else found in PATH or
// in the directories where Debian installs system programs.
Result<std::string> FindProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) {
        return name;
    }
    const char* path = std::getenv("PATH");
    std::istringstream directories(std::string(path != nullptr ? path : "") + ":/usr/sbin:/sbin");
    for (std::string directory; std::getline(directories, directory, ':');) {
        const std::string candidate = (directory + "/").append(name);
        if (!directory.empty() && access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
    }
    return Error{"cannot find the DHCP client " + name + " (Debian package dhcpcd-base)"};
}

bool IsLiveDhcpcd(pid_t pid) {
    const std::optional<std::string> stat = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    // pid (comm) state ...: a zombie has ended already.
    return stat && stat->find("(dhcpcd) ") != std::string::npos &&
           stat->find(") Z ") == std::string::npos;
}

// A dhcpcd that an earlier service left on the interface (one killed before
// its keeper could stop dhcpcd) would take a new one's start for a command to
// itself. It is stopped the way dhcpcd is meant to be, its group killed when
// it does not end in time.
void StopLeftover(const std::string& interfaceName) {
    const std::optional<std::string> pidText = ReadFile("/run/dhcpcd/" + interfaceName + "-4.pid");
    const pid_t pid = pidText ? static_cast<pid_t>(std::atoi(pidText->c_str())) : 0;
    if (pid <= 0 || !IsLiveDhcpcd(pid)) {
        return;
    }
    Log("stopping the dhcpcd (pid " + std::to_string(pid) + ") left on " + interfaceName);
    const pid_t group = getpgid(pid);
    kill(pid, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kLeftoverTimeout;
    while (IsLiveDhcpcd(pid) && std::chrono::steady_clock::now() < deadline) {
        usleep(20000);
    }
    if (IsLiveDhcpcd(pid) && group > 1) {
        killpg(group, SIGKILL);
    }
}

sigset_t KeeperSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGALRM, SIGCHLD}) {
        sigaddset(&signals, signal);
    }
    return signals;
}

// The keeper's children: dhcpcd's helpers become its children once dhcpcd
// has ended.
std::vector<pid_t> Children() {
    std::ifstream file("/proc/self/task/" + std::to_string(getpid()) + "/children");
    std::vector<pid_t> children;
    for (pid_t child; file >> child;) {
        children.push_back(child);
    }
    return children;
}

// Reaps the keeper's descendants until none is left: those still there after
// a grace time are killed.
void EndDescendants() {
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    const auto graceEnd = std::chrono::steady_clock::now() + kHelpersTimeout;
    const timespec tick{0, 50000000};
    for (;;) {
        pid_t reaped;
        while ((reaped = waitpid(-1, nullptr, WNOHANG)) > 0) {
        }
        if (reaped < 0) {
            return; // no child left
        }
        if (std::chrono::steady_clock::now() >= graceEnd) {
            for (pid_t descendant : Children()) {
                kill(descendant, SIGKILL);
            }
        }
        sigtimedwait(&child, nullptr, &tick);
    }
}

// The keeper, in the child of the service's fork: leads a process group of
// its own, starts the client in it, passes signals on to it and ends with its
// exit code once the client and its helpers are gone.
[[noreturn]] void RunKeeper(pid_t service, char* const argv[]) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    if (getppid() != service) {
        _exit(1); // the service ended before the death signal was in place
    }
    prctl(PR_SET_CHILD_SUBREAPER, 1); // dhcpcd's helpers come back here when dhcpcd ends
    close_range(3, ~0U, 0);
    const sigset_t signals = KeeperSignals();
    sigprocmask(SIG_SETMASK, &signals, nullptr);
    pid_t client = fork();
    if (client == 0) {
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        const int null = open("/dev/null", O_RDONLY);
        dup2(null, STDIN_FILENO);
        execv(argv[0], argv);
        _exit(127);
    }
    int status = W_EXITCODE(126, 0);
    while (client > 0) {
        const int signal = sigwaitinfo(&signals, nullptr);
        if (signal != SIGCHLD) {
            kill(client, signal == SIGINT ? SIGTERM : signal);
            continue;
        }
        int endStatus = 0;
        for (pid_t ended; (ended = waitpid(-1, &endStatus, WNOHANG)) > 0;) {
            if (ended == client) {
                status = endStatus;
                client = 0;
            }
        }
    }
    EndDescendants();
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

std::string Describe(int status) {
    return WIFEXITED(status) ? "exit code " + std::to_string(WEXITSTATUS(status))
                             : "signal " + std::to_string(WTERMSIG(status));
}

} // namespace

DhcpClient::DhcpClient(Options options) : m_options(std::move(options)) {
    m_options.directory = std::filesystem::absolute(m_options.directory).lexically_normal();
}

DhcpClient::~DhcpClient() {
    Stop(false);
    if (m_watchFd >= 0) {
        close(m_watchFd);
    }
}

Result<void> DhcpClient::Start() {
    Stop(false);
    return Launch();
}

void DhcpClient::Stop(bool release) {
    m_restartAt.reset();
    if (m_keeper > 0) {
        kill(m_keeper, release ? SIGALRM : SIGTERM);
        if (!KeeperEnds(kStopTimeoutMs)) {
            Log("dhcpcd on " + m_options.interfaceName + " did not stop; killing it");
            killpg(m_keeper, SIGKILL);
        }
        Collect(true);
    }
    for (const char* name : kLeaseFiles) {
        unlink((m_options.directory + "/" + name).c_str());
    }
    m_lease.reset();
}

void DhcpClient::AddPollFds(std::vector<pollfd>& polled) const {
    for (int fd : {m_keeperFd, m_watchFd}) {
        if (fd >= 0) {
            polled.push_back({fd, POLLIN, 0});
        }
    }
}

int DhcpClient::Timeout() const {
    const int watch = m_keeper > 0 && m_keeperFd < 0 ? kKeeperPollMs : -1;
    if (!m_restartAt) {
        return watch;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(*m_restartAt - Clock::now());
    const int due = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
    return watch < 0 ? due : std::min(due, watch);
}

// Waits up to `timeoutMs` for the keeper to end, leaving it to be reaped.
bool DhcpClient::KeeperEnds(int timeoutMs) const {
    if (m_keeperFd >= 0) {
        pollfd keeper{m_keeperFd, POLLIN, 0};
        return poll(&keeper, 1, timeoutMs) > 0;
    }
    for (int waited = 0;; waited += kKeeperPollMs) {
        siginfo_t info{};
        if (waitid(P_PID, m_keeper, &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == m_keeper) {
            return true;
        }
        if (waited >= timeoutMs) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(kKeeperPollMs));
    }
}

bool DhcpClient::Update() {
    Collect(false);
    if (m_restartAt && Clock::now() >= *m_restartAt) {
        m_restartAt.reset();
        const Result<void> started = Launch();
        if (!started) {
            Log(started.error());
            Exited(W_EXITCODE(127, 0));
        }
    }
    bool changed = false;
    char events[4096];
    while (m_watchFd >= 0 && read(m_watchFd, events, sizeof events) > 0) {
        changed = true;
    }
    return changed && ReadLease();
}

Result<void> DhcpClient::Launch() {
    StopLeftover(m_options.interfaceName);
    Result<void> launched = Prepare();
    if (launched) {
        launched = Spawn();
    }
    return launched;
}

// The private directory with the configuration and the hook, no lease files
// and a watch on them.
Result<void> DhcpClient::Prepare() {
    const std::string& directory = m_options.directory;
    if (directory.find('\'') != std::string::npos) {
        return Error{"the DHCP client's directory may not hold a quote: " + directory};
    }
    struct stat status {};
    if (mkdir(directory.c_str(), 0700) != 0 &&
        (errno != EEXIST || lstat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))) {
        return SystemError("cannot create the directory " + directory);
    }
    Result<void> written =
        WriteFile(directory + "/dhcpcd.conf", ConfigText(m_options.interfaceName), 0600);
    if (written) {
        written = WriteFile(directory + "/hook", kHookHead + directory + kHookBody, 0700);
    }
    for (const char* name : kLeaseFiles) {
        unlink((directory + "/" + name).c_str());
    }
    m_lease.reset();
    if (written && m_watchFd < 0) {
        m_watchFd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
        if (m_watchFd < 0 ||
            inotify_add_watch(m_watchFd, directory.c_str(), IN_MOVED_TO | IN_DELETE) < 0) {
            written = SystemError("cannot watch " + directory);
        }
    }
    return written;
}

Result<void> DhcpClient::Spawn() {
    const Result<std::string> program = FindProgram(m_options.program);
    if (!program) {
        return Error{program.error()};
    }
    std::vector<std::string> arguments = {
        *program, "-f", m_options.directory + "/dhcpcd.conf", "-B",
        "-4",     "-c", m_options.directory + "/hook",        m_options.interfaceName};
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    // The keeper is born with its signals blocked, so that none that comes
    // early ends it before it can pass it on.
    const sigset_t signals = KeeperSignals();
    sigset_t previous;
    sigprocmask(SIG_BLOCK, &signals, &previous);
    const pid_t service = getpid();
    const pid_t keeper = fork();
    if (keeper == 0) {
        RunKeeper(service, argv.data());
    }
    sigprocmask(SIG_SETMASK, &previous, nullptr);
    if (keeper < 0) {
        return SystemError("cannot start " + *program);
    }
    m_keeper = keeper;
    m_keeperFd = static_cast<int>(syscall(SYS_pidfd_open, keeper, 0));
    m_startedAt = Clock::now();
    if (m_keeperFd < 0 && errno != ENOSYS) {
        const Error error = SystemError("cannot watch " + *program);
        kill(m_keeper, SIGTERM);
        Collect(true);
        return error;
    }
    Log("started dhcpcd on " + m_options.interfaceName + " (keeper pid " + std::to_string(keeper) +
        ")");
    return Ok{};
}

// Reaps the keeper once it has ended (waiting for that with `wait`) and kills
// whatever is left in its process group; an ending nobody asked for makes the
// client start again after a pause that grows while it keeps failing.
void DhcpClient::Collect(bool wait) {
    int status = 0;
    if (m_keeper <= 0 || waitpid(m_keeper, &status, wait ? 0 : WNOHANG) != m_keeper) {
        return;
    }
    killpg(m_keeper, SIGKILL);
    if (m_keeperFd >= 0) {
        close(m_keeperFd);
    }
    m_keeper = 0;
    m_keeperFd = -1;
    if (!wait) {
        Exited(status);
    }
}

void DhcpClient::Exited(int status) {
    if (Clock::now() - m_startedAt >= kStableRun) {
        m_backoff = std::chrono::seconds(1);
    }
    Log("dhcpcd on " + m_options.interfaceName + " ended (" + Describe(status) +
        "); starting it again in " + std::to_string(m_backoff.count()) + " s");
    m_restartAt = Clock::now() + m_backoff;
    m_backoff = std::min(m_backoff * 2, kMaxBackoff);
}

// The lease, else the link-local address, else nothing.
bool DhcpClient::ReadLease() {
    std::optional<Lease> lease;
    for (const char* name : kLeaseFiles) {
        const std::optional<std::string> text = ReadFile(m_options.directory + "/" + name);
        Result<Lease> parsed = text ? ParseLease(*text) : Result<Lease>(Error{});
        if (parsed) {
            lease = *parsed;
            break;
        }
        if (text) {
            Log("ignoring the lease file " + std::string(name) + ": " + parsed.error());
        }
    }
    if (lease == m_lease) {
        return false;
    }
    m_lease = lease;
    return true;
}

} // namespace DeviceService
