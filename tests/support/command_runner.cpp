#include "support/command_runner.h"

#include <vector>

#include "app/command_mode.h"

namespace testing_support {

CommandResult runInProcess(const QStringList& arguments, std::chrono::milliseconds timeLimit) {
    std::vector<QByteArray> words{QByteArrayLiteral("vaskel")};
    for (const QString& argument : arguments) words.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    int argc = int(words.size());
    const Output out = CommandOutput::capture();
    CommandResult result;
    result.status = runCommand(argc, argv.data(), out, timeLimit);
    result.lines = out->lines();
    return result;
}

}  // namespace testing_support
