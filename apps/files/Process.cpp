// SPDX-License-Identifier: Apache-2.0
#include "apps/files/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <thread>
#include <utility>

#include "apps/files/Descriptor.h"
#include "apps/files/StagingFolder.h"

namespace vxfiles {

namespace {

constexpr std::array endingSignals{SIGHUP, SIGINT, SIGTERM};

sigset_t signalsToWatch()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : endingSignals) {
        struct sigaction action
        {};
        if (::sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset(&set, number);
    }
    return set;
}

std::string stopText(const std::string& program, int number, std::size_t placed)
{
    std::string text = ::isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "";
    text += program + ": stopped by a signal (" + ::strsignal(number) + "); ";
    if (placed == 0)
        return text + "no file is in place\n";
    return text + std::to_string(placed) + (placed == 1 ? " file is" : " files are") +
           " in place, what was not complete is removed\n";
}

[[noreturn]] void dieBy(int number)
{
    std::signal(number, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    ::kill(::getpid(), number);
    for (;;)
        ::pause();
}

}  // namespace

void takeStandardDescriptors()
{
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(number, F_GETFD) >= 0 || errno != EBADF)
            continue;
        // The lowest that is free. It must stay open, and it is open for what nobody does with it.
        const int taken = ::open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (taken != number)
            std::_Exit(1);
    }
}

int statusOfReport(int status, const std::string& program)
{
    std::cout.flush();
    const bool isWhole = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (isWhole)
        return status;
    std::cerr << program << ": the standard output did not take the whole report" << std::endl;
    return status == 0 ? 1 : status;
}

// Signals come to a thread that does nothing else, so that everything may be done about them.
class SignalWatch::Watcher
{
public:
    explicit Watcher(std::string program)
        : program_(std::move(program)), signals_(signalsToWatch()), end_(::eventfd(0, EFD_CLOEXEC))
    {
        arrivals_ = Descriptor(::signalfd(-1, &signals_, SFD_CLOEXEC));
        // The standard error stream as it is now: later it may stand for nothing while a library is kept silent.
        errors_ = Descriptor(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        if (!arrivals_.isOpen() || !end_.isOpen())
            return;  // without descriptors signals do what they always do
        ::pthread_sigmask(SIG_BLOCK, &signals_, &before_);
        thread_ = std::thread([this] { watch(); });
    }
    ~Watcher()
    {
        if (!thread_.joinable())
            return;
        const std::uint64_t one = 1;
        end_.write({reinterpret_cast<const char*>(&one), sizeof(one)});
        thread_.join();
        ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

private:
    void watch() const
    {
        std::array<pollfd, 2> awaited{{{.fd = arrivals_.get(), .events = POLLIN, .revents = 0},
                                       {.fd = end_.get(), .events = POLLIN, .revents = 0}}};
        while (::poll(awaited.data(), awaited.size(), -1) < 0 && errno == EINTR)
            continue;
        signalfd_siginfo arrived{};
        if (awaited[0].revents == 0 ||
            ::read(arrivals_.get(), &arrived, sizeof(arrived)) != static_cast<ssize_t>(sizeof(arrived)))
            return;
        const int number = static_cast<int>(arrived.ssi_signo);
        writeAll(errors_.isOpen() ? errors_.get() : STDERR_FILENO, stopText(program_, number, abandonAll()));
        dieBy(number);
    }

    std::string program_;
    sigset_t signals_;
    sigset_t before_{};
    Descriptor arrivals_;
    Descriptor end_;
    Descriptor errors_;
    std::thread thread_;
};

SignalWatch::SignalWatch(std::string program)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    watcher_ = std::make_unique<Watcher>(std::move(program));
}

SignalWatch::~SignalWatch() = default;

}  // namespace vxfiles
