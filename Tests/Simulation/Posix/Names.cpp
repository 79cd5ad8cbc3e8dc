// The look-up of names, before the system's: some of the simulation's are lost.

#include "Simulation/World.h"

#include <dlfcn.h>
#include <netdb.h>

std::atomic<unsigned> lostNames = 0;

extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                                                                  addrinfo** result)
{
    static const auto systems = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    static std::atomic<int> lookUps = 0;
    const std::string text = name != nullptr ? name : "";
    if (!text.ends_with(kDomain))
        return systems(name, service, hints, result);
    if (lookUps++ % 10 >= text.front() - '0')
        return systems("127.0.0.1", service, hints, result);
    ++lostNames;
    return EAI_NONAME;
}
