// The floor of a command-line start: Qt Core mapped and used, one line printed.
#include <QString>
#include <cstdio>

int main() {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const QString line = QStringLiteral("Hello ") + QLatin1String(qVersion());
    std::puts(line.toLocal8Bit().constData());
    return 0;
}
