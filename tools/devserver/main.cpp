// vaskel-devserver: a local storage server with one demo account, for trying the program
// against http://127.0.0.1:PORT. See --help.
#include <httplib.h>

#include <cstdio>
#include <thread>

#include "demo_service.h"
#include "options.h"
#include "stop_signals.h"

int main(int argc, char** argv) {
    int exitCode = 0;
    const std::optional<DemoOptions> options = parseOptions(argc, argv, exitCode);
    if (!options) return exitCode;

    // Ctrl-C and SIGTERM are taken by a thread of their own, which stops the server cleanly.
    const sigset_t stopSignals = blockStopSignals();

    httplib::Server server;
    // Answers go out at once instead of waiting on Nagle's algorithm (about 40 ms a request).
    server.set_tcp_nodelay(true);
    DemoService service(*options);
    service.install(server);

    const int port = options->port == 0
                         ? server.bind_to_any_port("127.0.0.1")
                         : (server.bind_to_port("127.0.0.1", options->port) ? options->port : -1);
    if (port <= 0) {
        std::fprintf(stderr, "vaskel-devserver: cannot listen on 127.0.0.1:%d\n", options->port);
        return 1;
    }
    std::printf("Vaskel dev server on http://127.0.0.1:%d\n", port);
    std::printf("Sign in as %s with password %s. Ctrl-C stops it.\n", options->email.c_str(),
                options->password.c_str());
    std::fflush(stdout);

    std::thread stopper([&] {
        int received = 0;
        sigwait(&stopSignals, &received);
        server.stop();
    });
    const bool served = server.listen_after_bind();
    // If the server ended on its own, wake the signal thread so that it can end too.
    if (stopper.joinable()) {
        pthread_kill(stopper.native_handle(), SIGTERM);
        stopper.join();
    }
    return served ? 0 : 1;
}
