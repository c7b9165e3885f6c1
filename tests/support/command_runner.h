#pragma once

#include <QStringList>
#include <chrono>

namespace testing_support {

struct CommandResult {
    int status = -1;
    QStringList lines;
};

/// Runs the command-line tool in this process with `arguments` (the words after the program
/// name), one-shot commands bounded by `timeLimit`, and gives its exit status and printed lines.
CommandResult runInProcess(const QStringList& arguments,
                           std::chrono::milliseconds timeLimit = std::chrono::seconds(20));

}  // namespace testing_support
