#pragma once

#include <QStringList>
#include <chrono>
#include <vector>

#include "app/command_mode.h"

namespace testing_support {

struct CommandResult {
    int status = -1;
    QStringList lines;
};

/// Runs the command-line tool in this process with `arguments` (the words after the program
/// name), one-shot commands bounded by `timeLimit`, and gives its exit status and printed lines.
inline CommandResult runInProcess(const QStringList& arguments,
                                  std::chrono::milliseconds timeLimit = std::chrono::seconds(20)) {
    std::vector<QByteArray> words{QByteArrayLiteral("vaskel")};
    for (const QString& argument : arguments) words.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    int argc = int(words.size());
    const Output out = CommandOutput::capture();
    const int status = runCommand(argc, argv.data(), out, timeLimit);
    return {status, out->lines()};
}

}  // namespace testing_support
