// vaskel-setup-screenshots: draws the setup window in the states the README shows (signed out,
// signed in, the step that asks to enable the sync extension), in a light and a dark palette,
// into PNG files. scripts/screenshots runs it on a virtual X server with a throwaway home.
#include <QApplication>
#include <QDir>
#include <QEventLoop>
#include <QPalette>
#include <QStyleFactory>
#include <QTimer>
#include <cstdio>

#include "server/account.h"
#include "setup/setup_view.h"
#include "setup/setup_view_widget.h"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    if (argc != 2) {
        std::fputs("usage: vaskel-setup-screenshots <folder>\n", stderr);
        return 2;
    }
    const QDir folder(QString::fromLocal8Bit(argv[1]));
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    // The demo account of vaskel-devserver.
    const Account demo{QStringLiteral("demo@example.com"),
                       QStringLiteral("Demo User"),
                       1'200'000'000,
                       5'000'000'000,
                       false,
                       QStringLiteral("Pro"),
                       QStringLiteral("active"),
                       {}};
    // A dark palette as dark desktop themes give one, with their darker field background.
    QPalette dark(QColor(0x3a, 0x3a, 0x3f), QColor(0x2b, 0x2b, 0x2f));
    dark.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x22));

    auto* view = new SetupView(nullptr, nullptr, nullptr, nullptr);
    SetupViewWidget widget(view);
    widget.setFixedSize(460, 320);
    widget.show();
    QApplication::setActiveWindow(&widget);  // the e-mail field shows its focus and cursor
    bool saved = true;
    for (const QString& theme : {QString(), QStringLiteral("dark-")}) {
        if (!theme.isEmpty()) QApplication::setPalette(dark);
        const auto save = [&](const char* name) {
            QEventLoop settle;  // lets the window lay itself out and draw
            QTimer::singleShot(150, &settle, &QEventLoop::quit);
            settle.exec();
            const QString path = folder.filePath(theme + QLatin1String(name));
            if (!widget.grab().save(path)) {
                std::fprintf(stderr, "vaskel-setup-screenshots: cannot write %s\n",
                             qPrintable(path));
                saved = false;
            }
        };
        view->setAccount(std::nullopt);
        view->setEmail(demo.email);
        view->setPassword(QStringLiteral("demo"));
        save("setup-signed-out.png");
        view->setAccount(demo);
        view->setProviderWorking(true);
        save("setup-signed-in.png");
        view->setProviderWorking(false);
        if (!theme.isEmpty())
            view->setError(QStringLiteral("Could not reach Vaskel. Connection refused"));
        save("setup-enable-step.png");
    }
    return saved ? 0 : 1;
}
