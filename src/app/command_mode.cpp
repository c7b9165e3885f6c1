#include "app/command_mode.h"

#include <cstdio>
#include <cstring>

#include "app/vaskel_host.h"
#include "platform/log.h"

int runCommandMode(int /*argc*/, char** argv) {
    platform::setLogFallbackToStandardError(false);
    const char* option = argv[1];
    if (std::strcmp(option, "--version") == 0) {
        std::printf("Vaskel %s\n", BUILD_STAMP);
        return 0;
    }
    return 0;
}
