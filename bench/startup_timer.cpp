// Times how long programs take from start to exit, interleaved so that a slow spell of the
// machine falls on all of them alike, and prints each one's median and its ratio to the first.
//
//   bench_startup_timer ROUNDS NAME PROGRAM [ARGUMENT...] [-- NAME PROGRAM [ARGUMENT...]]...
//
// Standard input, output and error of the programs are /dev/null; the environment is this one's.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern char** environ;

namespace {

struct Command {
    std::string name;
    std::vector<char*> arguments;  // ends with nullptr
    std::vector<double> milliseconds;
};

// Runs `command` once and gives its wall time in milliseconds, or a negative value when it could
// not start or did not exit with status 0.
double timeOnce(Command& command) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addopen(&files, descriptor, "/dev/null",
                                         descriptor == STDIN_FILENO ? O_RDONLY : O_WRONLY, 0);
    }
    const auto start = std::chrono::steady_clock::now();
    pid_t child = 0;
    const int error = posix_spawn(&child, command.arguments[0], &files, nullptr,
                                  command.arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) {
        std::fprintf(stderr, "cannot start %s: %s\n", command.arguments[0], std::strerror(error));
        return -1;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const auto end = std::chrono::steady_clock::now();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "%s did not exit with status 0\n", command.name.c_str());
        return -1;
    }
    return std::chrono::duration<double, std::milli>(end - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 0;
    std::vector<Command> commands;
    for (int index = 2; index < argc; ++index) {
        if (std::strcmp(argv[index], "--") == 0 || commands.empty()) {
            if (std::strcmp(argv[index], "--") == 0 && ++index == argc) break;
            commands.push_back({argv[index], {}, {}});
            continue;
        }
        commands.back().arguments.push_back(argv[index]);
    }
    const bool complete = std::all_of(commands.begin(), commands.end(),
                                      [](const Command& each) { return !each.arguments.empty(); });
    if (rounds < 1 || commands.empty() || !complete) {
        std::fprintf(stderr,
                     "usage: %s ROUNDS NAME PROGRAM [ARGUMENT...] [-- NAME PROGRAM "
                     "[ARGUMENT...]]...\n",
                     argv[0]);
        return 2;
    }
    for (Command& command : commands) command.arguments.push_back(nullptr);

    // A few unmeasured rounds bring files into the page cache; then every round runs each
    // command once, starting one further along each time so that none always follows another.
    const int warmUp = std::min(rounds, 5);
    for (int round = -warmUp; round < rounds; ++round) {
        for (std::size_t step = 0; step < commands.size(); ++step) {
            Command& command = commands[(std::size_t(std::max(round, 0)) + step) % commands.size()];
            const double milliseconds = timeOnce(command);
            if (milliseconds < 0) return 1;
            if (round >= 0) command.milliseconds.push_back(milliseconds);
        }
    }

    const double floor = median(commands.front().milliseconds);
    std::printf("%-12s %10s %8s   (%d interleaved rounds)\n", "command", "median ms", "ratio",
                rounds);
    for (const Command& command : commands) {
        const double value = median(command.milliseconds);
        std::printf("%-12s %10.2f %8.2f\n", command.name.c_str(), value, value / floor);
    }
    return 0;
}
