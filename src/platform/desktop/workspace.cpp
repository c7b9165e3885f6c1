#include "platform/desktop/workspace.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QFileInfo>

namespace platform {
namespace {

class DesktopWorkspace final : public Workspace {
public:
    bool openURL(const QUrl& url) override {
        return url.isValid() && QDesktopServices::openUrl(url);
    }

    void activateFileViewerSelecting(const QStringList& paths) override {
        if (paths.isEmpty()) return;
        QStringList uris;
        for (const QString& path : paths) uris << QUrl::fromLocalFile(path).toString();
        QDBusMessage call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.FileManager1"),
            QStringLiteral("/org/freedesktop/FileManager1"),
            QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
        call << uris << QString();
        const QDBusMessage reply = QDBusConnection::sessionBus().call(call, QDBus::Block, 5000);
        if (reply.type() == QDBusMessage::ReplyMessage) return;
        QFileInfo first(paths.first());
        openURL(
            QUrl::fromLocalFile(first.isDir() ? first.absoluteFilePath() : first.absolutePath()));
    }
};

}  // namespace

Workspace& Workspace::real() {
    static DesktopWorkspace workspace;
    return workspace;
}

}  // namespace platform
