#include "ForkedPeer.h"

#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "LinxIpc.h"

ForkedPeer::ForkedPeer(std::function<int()> body) {
    pid_ = ::fork();
    if (pid_ == 0) {
        ::_exit(body());
    }
}

ForkedPeer::~ForkedPeer() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

int ForkedPeer::Wait(int timeoutMs) {
    if (pid_ <= 0) {
        return -1;
    }
    for (int waited = 0;; waited += 5) {
        int status = 0;
        if (::waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        if (waited >= timeoutMs) {
            return -1;  // the destructor kills it
        }
        struct timespec pause = {0, 5 * 1000000L};
        ::nanosleep(&pause, nullptr);
    }
}

bool SendSignal(LinxIpc& from, const char* to, unsigned int type) {
    IpcMessage message;
    return message.Allocate(type, 0, nullptr) == 0 && from.Notify(to, message, true) == 0;
}
