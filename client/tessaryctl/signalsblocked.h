#pragma once

#include <csignal>
#include <pthread.h>

namespace tessary::ctl {

/// While it lives, signals reach neither this thread nor those that it starts: they are another thread's business.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        ::pthread_sigmask(SIG_BLOCK, &all, &m_before);
    }
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};

} // namespace tessary::ctl
