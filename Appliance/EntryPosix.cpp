#include "Run.h"

#include <csignal>
#include <string>
#include <vector>

int main(int count, char** arguments)
{
    // Blocked before any thread is made, so that all inherit it and the signals are only ever taken here.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGINT);
    sigaddset(&endSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);

    return ApplianceParts::Run(std::vector<std::string>(arguments + 1, arguments + count), [&endSignals] {
        int signal = 0;
        sigwait(&endSignals, &signal);
    });
}
