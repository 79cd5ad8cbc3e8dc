#include "World.h"

#include <dlfcn.h>
#include <netdb.h>

namespace
{
constexpr const char* kDomain = ".simulation.test";

std::atomic<unsigned> made = 0;
std::atomic<unsigned> disturbances = 0;
std::mutex mutex;
std::map<std::string, int> lookUps;
} // namespace

std::string Names::New(unsigned failures)
{
    std::string name("http://a");
    name.back() = static_cast<char>('a' + failures);
    return name + std::to_string(++made % 2) + kDomain;
}

unsigned Names::Disturbances()
{
    return disturbances;
}

/// Stands before the system's.
extern "C" __attribute__((visibility("default"))) int getaddrinfo(const char* name, const char* service, const addrinfo* hints,
                                                                  addrinfo** result)
{
    using Resolve = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto systems = reinterpret_cast<Resolve>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    const std::string text = name != nullptr ? name : "";
    if (!text.ends_with(kDomain))
        return systems(name, service, hints, result);
    const std::lock_guard guard(mutex);
    if (lookUps[text]++ % 10 >= text.front() - 'a')
        return systems("127.0.0.1", service, hints, result);
    disturbances += 2;
    return EAI_NONAME;
}
