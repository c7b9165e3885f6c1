// Preloaded into the program under end-to-end test: when VASKEL_TEST_HOME is set, the user
// database reports that directory as the current user's home, so the program under test never
// touches the real home directory.
#include <dlfcn.h>
#include <pwd.h>

#include <cstdlib>

extern "C" int getpwuid_r(uid_t uid, passwd* entry, char* buffer, size_t size, passwd** result) {
    using Real = int (*)(uid_t, passwd*, char*, size_t, passwd**);
    static Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "getpwuid_r"));
    const int status = real(uid, entry, buffer, size, result);
    if (char* home = std::getenv("VASKEL_TEST_HOME"); home && status == 0 && *result)
        (*result)->pw_dir = home;
    return status;
}

extern "C" passwd* getpwuid(uid_t uid) {
    using Real = passwd* (*)(uid_t);
    static Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "getpwuid"));
    passwd* entry = real(uid);
    if (char* home = std::getenv("VASKEL_TEST_HOME"); home && entry) entry->pw_dir = home;
    return entry;
}
